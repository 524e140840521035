// SPDX-License-Identifier: BSD-3-Clause
#ifndef FERRULE_TESTS_HOSTMODULE_H
#define FERRULE_TESTS_HOSTMODULE_H

#include <QtCore/QString>

namespace test {

/*! A shared library that a host loads while it runs, and unloads again. */
class HostModule
{
public:
    using Function = int (*)();

    explicit HostModule(const QString& path);

    bool isLoaded() const { return m_handle; }
    Function function(const char* name) const;
    bool unload();

    //! Whether the library under test lies in this process's memory, for whatever reason.
    static bool isFerruleMapped();

private:
    Q_DISABLE_COPY(HostModule)

    void* m_handle;
};

/*!
    Looks for leaks now, and lets the process end without. What the library keeps until the process
    ends, the TLS context and the pooled sessions, can be reached while it is loaded, and would be
    taken for leaks once it has gone. Does nothing without a leak checker.
*/
bool hasLeaks();
void endLeakCheck();

} // namespace test

#endif
