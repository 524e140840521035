// SPDX-License-Identifier: BSD-3-Clause
#include "common/Platform.h"
#include "common/TerminationNotifier.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <string>
#include <winsock2.h>
#include <windows.h>

namespace platform {

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

QString moduleOf(Address address)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS
                                | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(address), &module)) {
        return QString();
    }
    constexpr DWORD LONGEST_PATH = 32768;
    std::wstring path(LONGEST_PATH, L'\0');
    path.resize(GetModuleFileNameW(module, &path[0], LONGEST_PATH));
    return QString::fromStdWString(path);
}

Address engineFunction(const QString&, const char* name)
{
    for (const wchar_t* engine :
         {L"libeay32.dll", L"libcrypto-1_1-x64.dll", L"libcrypto-3-x64.dll"}) {
        const HMODULE module = GetModuleHandleW(engine);
        const FARPROC function = module ? GetProcAddress(module, name) : nullptr;
        if (function)
            return reinterpret_cast<Address>(function);
    }
    return nullptr;
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
