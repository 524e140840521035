// SPDX-License-Identifier: BSD-3-Clause
#include "tests/support/HostModule.h"

#include <QtCore/QFile>

#include <cstring>
#include <dlfcn.h>
#include <link.h>

// LeakSanitizer's, where the program is built with it.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

bool leakCheckIsOver = false;

int countFerrule(dl_phdr_info* info, std::size_t, void* count)
{
    if (std::strstr(info->dlpi_name, "libFerrule"))
        ++*static_cast<int*>(count);
    return 0;
}

} // namespace

//! Asked at the end of the process.
extern "C" Q_DECL_EXPORT int __lsan_is_turned_off()
{
    return leakCheckIsOver ? 1 : 0;
}

namespace test {

HostModule::HostModule(const QString& path)
    : m_handle(dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL))
{
    if (!m_handle)
        qWarning("%s", dlerror());
}

HostModule::Function HostModule::function(const char* name) const
{
    return reinterpret_cast<Function>(dlsym(m_handle, name));
}

bool HostModule::unload()
{
    return dlclose(m_handle) == 0;
}

bool HostModule::isFerruleMapped()
{
    int count = 0;
    dl_iterate_phdr(countFerrule, &count);
    return count > 0;
}

bool hasLeaks()
{
    return !leakCheckIsOver && __lsan_do_recoverable_leak_check
           && __lsan_do_recoverable_leak_check() != 0;
}

void endLeakCheck()
{
    leakCheckIsOver = true;
}

} // namespace test
