// SPDX-License-Identifier: BSD-3-Clause

/*
    The module's entry routine. Static objects have been made when it learns of a load, and go when
    it has learnt of the unload; it has nothing to do with them.
*/

#if !defined(WIN32_LEAN_AND_MEAN)
#    define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}
