// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_TERMINATIONNOTIFIER_H
#define FERRULE_EXAMPLES_TERMINATIONNOTIFIER_H

#include <QtCore/QObject>

/*!
    Turns the system's requests to end the program (SIGTERM and SIGINT; the console's on Windows)
    into a signal on the event loop. Make at most one.
*/
class TerminationNotifier : public QObject
{
    Q_OBJECT

public:
    explicit TerminationNotifier(QObject* parent = nullptr);
    ~TerminationNotifier() override;

Q_SIGNALS:
    void requested();

private:
    Q_DISABLE_COPY(TerminationNotifier)
};

#endif
