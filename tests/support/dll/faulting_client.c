/* A client library whose DllMain faults as it is loaded: the library must
   report the load as failed and go on, not end its host. */
#include <windows.h>

/* An address no module maps, read through a pointer the compiler cannot see through. */
static volatile int* volatile g_nowhere = (volatile int*)(ULONG_PTR)16;

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)instance;
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH)
        *g_nowhere = 1;
    return TRUE;
}
