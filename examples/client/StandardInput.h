// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_EXAMPLES_STANDARDINPUT_H
#define FERRULE_EXAMPLES_STANDARDINPUT_H

#include <QtCore/QByteArray>
#include <QtCore/QObject>

#include <memory>

/*!
    Reads standard input, whatever it is: files, pipes, terminals and devices. Not all of them can
    be watched by an event loop, so a thread waits for them. It reads one piece for each call of
    readNext(), and thus never more than the program can pass on.
*/
class StandardInput : public QObject
{
    Q_OBJECT

public:
    explicit StandardInput(QObject* parent = nullptr);

    //! May be called at any time; a thread that is still waiting for input ends with the process.
    ~StandardInput() override;

    //! Asks for one arrived(), ended() or failed().
    void readNext();

Q_SIGNALS:
    void arrived(const QByteArray& data);
    void ended();
    void failed(const QString& reason);

private:
    struct Shared;

    Q_DISABLE_COPY(StandardInput)
    static void run(const std::shared_ptr<Shared>& shared);
    void deliver(const QByteArray& data, int count, int error);

    std::shared_ptr<Shared> m_shared;
};

#endif
