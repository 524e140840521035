// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_EMISSIONLOG_H
#define FERRULE_TESTS_EMISSIONLOG_H

#include <QtCore/QByteArrayList>
#include <QtCore/QMetaMethod>
#include <QtCore/QObject>
#include <QtNetwork/QAbstractSocket>

namespace test {

/*!
    Writes down the name of every signal that a socket emits, `destroyed` excepted; stateChanged
    with the state as "stateChanged:3".
*/
class EmissionLog : public QObject
{
    Q_OBJECT

public:
    explicit EmissionLog(QAbstractSocket* socket)
    {
        const QMetaMethod slot = metaObject()->method(metaObject()->indexOfSlot("record()"));
        const QMetaObject* meta = socket->metaObject();
        for (int i = 0; i < meta->methodCount(); ++i) {
            const QMetaMethod signal = meta->method(i);
            if (signal.methodType() == QMetaMethod::Signal && signal.name() != "destroyed")
                connect(socket, signal, this, slot);
        }
    }

    QByteArrayList emissions;

    int count(const char* name) const { return emissions.count(QByteArray(name)); }

    //! The emissions that tell of the life of a connection; the others depend on the network.
    QByteArrayList story() const
    {
        QByteArrayList result;
        for (const QByteArray& name : emissions) {
            if (name.startsWith("stateChanged") || name == "connected" || name == "disconnected"
                || name == "connectionVerificationDone" || name == "tunnelEstablished"
                || name.startsWith("error")) {
                result.append(name);
            }
        }
        return result;
    }

private:
    Q_SLOT void record()
    {
        const QMetaMethod signal = sender()->metaObject()->method(senderSignalIndex());
        QByteArray name = signal.name();
        if (name == "stateChanged") {
            const auto* socket = static_cast<QAbstractSocket*>(sender());
            name += ':' + QByteArray::number(socket->state());
        }
        emissions.append(name);
    }
};

} // namespace test

#endif
