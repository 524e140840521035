// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TRANSPORTSIGNAL_H
#define FERRULE_TRANSPORTSIGNAL_H

#include <QtCore/QPointer>
#include <QtNetwork/QTcpSocket>

#include <memory>

namespace vela {

/*!
    Held by whatever handles a signal of a transport, that is of the plain socket under a TLS
    socket. The code that emitted the signal goes on with the transport afterwards, for instance
    ends the connection that has failed; so meanwhile the transport must neither be deleted nor
    begin another connection.
*/
class TransportSignal
{
public:
    //! What is known of the signals of one transport. Outlives the transport.
    class Count
    {
    public:
        //! Returns true while a signal is being handled.
        bool isHandling() const { return m_handled > 0; }

    private:
        friend class TransportSignal;

        int m_handled = 0;
        QPointer<QTcpSocket> m_dismissed; // To be deleted once nothing is handled any more.
    };
    using CountPtr = std::shared_ptr<Count>;

    //! Returns the count of \a transport, the same one for as long as the transport lives.
    static CountPtr countOf(QTcpSocket* transport);

    /*!
        Deletes \a transport later, but not before all of its signals have been handled: a plain
        deleteLater() is carried out by an event loop that runs within a slot, and would delete a
        transport that is still emitting outside of that loop.
    */
    static void dismiss(QTcpSocket* transport);

    explicit TransportSignal(CountPtr count);
    ~TransportSignal();

private:
    Q_DISABLE_COPY(TransportSignal)

    const CountPtr m_count;
};

} // namespace vela

#endif
