#include <windows.h>

// Nothing runs at load or unload: work under the loader lock can deadlock the host
// process, so the library starts in OracleVssInitLib and stops in OracleVssStopLib.
BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
    return TRUE;
}
