// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_FLOW_H
#define FERRULE_EXAMPLES_FLOW_H

#include <QtCore/QByteArray>
#include <QtCore/QSocketNotifier>

/*!
    Carries bytes from one TCP connection to another. It receives only when all that it has received
    is sent, so that a slow receiver holds the sender up and nothing piles up here.
*/
class Flow : public QObject
{
    Q_OBJECT

public:
    //! Both descriptors must not block and outlive the object. \a first goes before all else.
    Flow(qintptr from, qintptr to, const QByteArray& first);

    void start();
    void stop();

    //! Returns how many bytes have been sent.
    qint64 carried() const { return m_carried; }

Q_SIGNALS:
    //! Some bytes have been sent.
    void moved();
    //! The sender has ended, everything is sent, and the receiver has been told of the end.
    void ended();
    void failed(const QString& reason);

private:
    void fetch();
    void deliver();

    const qintptr m_from;
    const qintptr m_to;
    QByteArray m_pending;
    QSocketNotifier m_readable;
    QSocketNotifier m_writable;
    qint64 m_carried = 0;
};

#endif
