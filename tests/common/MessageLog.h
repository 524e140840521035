// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_MESSAGELOG_H
#define FERRULE_MESSAGELOG_H

#include <QtCore/QStringList>

namespace test {

/*! Writes down what goes to Qt's message channels, instead of having it printed, while it lives. */
class MessageLog
{
public:
    MessageLog()
    {
        s_messages.clear();
        m_previous =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&,
                                      const QString& message) { s_messages.append(message); });
    }
    ~MessageLog() { qInstallMessageHandler(m_previous); }

    QStringList messages() const { return s_messages; }

private:
    Q_DISABLE_COPY(MessageLog)

    static inline QStringList s_messages;
    QtMessageHandler m_previous;
};

} // namespace test

#endif
