// SPDX-License-Identifier: BSD-3-Clause
#include "common/LoadedModules.h"

#include <string>
#include <windows.h>

namespace modules {

QString pathOf(Address address)
{
    constexpr DWORD LONGEST_PATH = 32768;
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS
                                | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(address), &module)) {
        return QString();
    }
    std::wstring path(LONGEST_PATH, L'\0');
    path.resize(GetModuleFileNameW(module, &path[0], LONGEST_PATH));
    return QString::fromStdWString(path);
}

// Windows tells apart what has one name by nothing else, so the library's engine is the one loaded.
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

} // namespace modules
