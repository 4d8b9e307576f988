/* A client library whose DllMain never returns as it is loaded, so the thread
   that loads it holds the loader lock for good. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)instance;
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH)
        Sleep(INFINITE);
    return TRUE;
}
