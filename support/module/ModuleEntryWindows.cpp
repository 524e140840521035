// SPDX-License-Identifier: BSD-3-Clause

/*
    The module's entry routine. Static objects have been made when it learns of a load, and go when
    it has learnt of the unload; it has nothing to do with them.
*/

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID)
{
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(module);
    return TRUE;
}
