// SPDX-License-Identifier: BSD-3-Clause
#include "common/Platform.h"
#include "common/TerminationNotifier.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <winsock2.h>
#include <windows.h>

namespace platform {

namespace {

int transferred(int count)
{
    if (count >= 0)
        return count;
    return WSAGetLastError() == WSAEWOULDBLOCK ? WOULD_BLOCK : FAILED;
}

} // namespace

void prepareStandardStreams()
{
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
}

int readInput(char* data, int size)
{
    return _read(_fileno(stdin), data, static_cast<unsigned>(size));
}

bool writeOutput(const char* data, qint64 size)
{
    constexpr qint64 LARGEST_WRITE = 32 * 1024;
    while (size > 0) {
        const qint64 piece = std::min(size, LARGEST_WRITE);
        const int count = _write(_fileno(stdout), data, static_cast<unsigned>(piece));
        if (count < 1)
            return false;
        data += count;
        size -= count;
    }
    return true;
}

void endSending(qintptr descriptor)
{
    shutdown(static_cast<SOCKET>(descriptor), SD_SEND);
}

int receive(qintptr descriptor, char* data, int size)
{
    return transferred(recv(static_cast<SOCKET>(descriptor), data, size, 0));
}

int send(qintptr descriptor, const char* data, int size)
{
    return transferred(::send(static_cast<SOCKET>(descriptor), data, size, 0));
}

QString socketErrorText()
{
    return qt_error_string(WSAGetLastError());
}

qintptr duplicateSocket(qintptr descriptor)
{
    WSAPROTOCOL_INFOW info;
    if (WSADuplicateSocketW(static_cast<SOCKET>(descriptor), GetCurrentProcessId(), &info) != 0)
        return -1;
    const SOCKET copy = WSASocketW(FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO, FROM_PROTOCOL_INFO,
                                   &info, 0, WSA_FLAG_OVERLAPPED);
    return static_cast<qintptr>(copy);
}

void closeSocket(qintptr descriptor)
{
    closesocket(static_cast<SOCKET>(descriptor));
}

} // namespace platform

namespace {

std::atomic<TerminationNotifier*> activeNotifier{nullptr};

// Called on a thread of the system's own.
BOOL WINAPI handleConsoleEvent(DWORD)
{
    TerminationNotifier* notifier = activeNotifier.load();
    if (!notifier)
        return FALSE;
    QMetaObject::invokeMethod(notifier, "requested", Qt::QueuedConnection);
    return TRUE;
}

} // namespace

TerminationNotifier::TerminationNotifier(QObject* parent)
    : QObject(parent)
{
    activeNotifier.store(this);
    SetConsoleCtrlHandler(handleConsoleEvent, TRUE);
}

TerminationNotifier::~TerminationNotifier()
{
    SetConsoleCtrlHandler(handleConsoleEvent, FALSE);
    activeNotifier.store(nullptr);
}
