// SPDX-License-Identifier: BSD-3-Clause
#include "tests/support/HostModule.h"

#include <QtCore/QDir>

#include <windows.h>

namespace test {

HostModule::HostModule(const QString& path)
    : m_handle(
        LoadLibraryW(QDir::toNativeSeparators(QDir(path).absolutePath()).toStdWString().c_str()))
{
    if (!m_handle)
        qWarning("%s: error %lu", qPrintable(path), GetLastError());
}

HostModule::Function HostModule::function(const char* name) const
{
    const FARPROC address = GetProcAddress(static_cast<HMODULE>(m_handle), name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

bool HostModule::unload()
{
    return FreeLibrary(static_cast<HMODULE>(m_handle));
}

bool HostModule::isFerruleMapped()
{
    return GetModuleHandleW(L"Ferrule.dll") != nullptr;
}

bool hasLeaks()
{
    return false;
}

void endLeakCheck()
{
}

} // namespace test
