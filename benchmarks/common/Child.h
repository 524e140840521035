// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_BENCH_CHILD_H
#define FERRULE_BENCH_CHILD_H

#include "Setup.h"

#include <QtCore/QJsonObject>
#include <QtCore/QProcess>

#include <functional>

namespace bench {

/*!
    This program, started again with other work, which answers lines of JSON with lines of JSON. It
    ends when its standard input does, so also when this process is gone.
*/
class Child
{
public:
    Child(const QStringList& arguments, Protocol protocol);
    ~Child();

    //! Waits for the next line. None within two minutes ends the program.
    QJsonObject read();

    QJsonObject ask(const QJsonObject& question);

private:
    Q_DISABLE_COPY(Child)
    QProcess m_process;
};

//! Answers each line of standard input by \a answer, until there are no more.
void answerParent(const std::function<QJsonObject(const QJsonObject&)>& answer);

void tellParent(const QJsonObject& object);

} // namespace bench

#endif
