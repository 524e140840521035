// SPDX-License-Identifier: BSD-3-Clause
#include "common/Platform.h"
#include "common/TerminationNotifier.h"

#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

namespace {

// Another program on the same terminal or pipe may have made the stream non-blocking.
bool waitFor(int descriptor, short events)
{
    pollfd entry = {descriptor, events, 0};
    return poll(&entry, 1, -1) >= 0 || errno == EINTR;
}

bool isTemporary(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK;
}

int transferred(ssize_t count)
{
    if (count >= 0)
        return static_cast<int>(count);
    return isTemporary(errno) || errno == EINTR ? WOULD_BLOCK : FAILED;
}

} // namespace

void prepareStandardStreams()
{
    std::signal(SIGPIPE, SIG_IGN);
    // A stream that was closed by the caller would otherwise lend its number to a socket. Opened
    // for reading, so that writing to a closed standard output still fails.
    while (true) {
        const int descriptor = open("/dev/null", O_RDONLY);
        if (descriptor > STDERR_FILENO)
            close(descriptor);
        if (descriptor < 0 || descriptor > STDERR_FILENO)
            return;
    }
}

int readInput(char* data, int size)
{
    while (true) {
        const ssize_t count = read(STDIN_FILENO, data, static_cast<size_t>(size));
        if (count >= 0)
            return static_cast<int>(count);
        if (isTemporary(errno) && waitFor(STDIN_FILENO, POLLIN))
            continue;
        if (errno != EINTR)
            return -1;
    }
}

bool writeOutput(const char* data, qint64 size)
{
    while (size > 0) {
        const ssize_t count = write(STDOUT_FILENO, data, static_cast<size_t>(size));
        if (count >= 0) {
            data += count;
            size -= count;
        } else if (!(isTemporary(errno) && waitFor(STDOUT_FILENO, POLLOUT)) && errno != EINTR) {
            return false;
        }
    }
    return true;
}

void endSending(qintptr descriptor)
{
    shutdown(static_cast<int>(descriptor), SHUT_WR);
}

int receive(qintptr descriptor, char* data, int size)
{
    return transferred(recv(static_cast<int>(descriptor), data, static_cast<size_t>(size), 0));
}

int send(qintptr descriptor, const char* data, int size)
{
    return transferred(::send(static_cast<int>(descriptor), data, static_cast<size_t>(size), 0));
}

QString socketErrorText()
{
    return qt_error_string(errno);
}

qintptr duplicateSocket(qintptr descriptor)
{
    return fcntl(static_cast<int>(descriptor), F_DUPFD_CLOEXEC, 0);
}

void closeSocket(qintptr descriptor)
{
    close(static_cast<int>(descriptor));
}

} // namespace platform

namespace {

int wakePipe[2] = {-1, -1};

// Almost nothing may be called here; one byte through a pipe may.
void handleSignal(int)
{
    const int error = errno;
    const char byte = 0;
    const ssize_t ignored = write(wakePipe[1], &byte, 1);
    static_cast<void>(ignored);
    errno = error;
}

void setHandler(void (*handler)(int))
{
    std::signal(SIGTERM, handler);
    std::signal(SIGINT, handler);
}

} // namespace

TerminationNotifier::TerminationNotifier(QObject* parent)
    : QObject(parent)
{
    if (pipe(wakePipe) != 0)
        return; // The signals keep ending the program, without ceremony.
    for (const int end : wakePipe) {
        fcntl(end, F_SETFL, O_NONBLOCK);
        fcntl(end, F_SETFD, FD_CLOEXEC);
    }
    auto* notifier = new QSocketNotifier(wakePipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        const ssize_t ignored = read(wakePipe[0], bytes, sizeof bytes);
        static_cast<void>(ignored);
        Q_EMIT requested();
    });
    setHandler(handleSignal);
}

TerminationNotifier::~TerminationNotifier()
{
    if (wakePipe[0] < 0)
        return;
    setHandler(SIG_DFL);
    for (int& end : wakePipe) {
        close(end);
        end = -1;
    }
}
