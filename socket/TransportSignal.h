// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TRANSPORTSIGNAL_H
#define FERRULE_TRANSPORTSIGNAL_H

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
    //! How many signals of one transport are being handled. Outlives the transport.
    using Count = std::shared_ptr<int>;

    //! Returns the count of \a transport, the same one for as long as the transport lives.
    static Count countOf(QTcpSocket* transport);

    explicit TransportSignal(Count count)
        : m_count(std::move(count))
    {
        ++*m_count;
    }
    ~TransportSignal() { --*m_count; }

private:
    Q_DISABLE_COPY(TransportSignal)

    const Count m_count;
};

} // namespace vela

#endif
