#pragma once

#include <windows.h>

// The module this code is linked into: orasnap.dll in production, the executable
// when the library is linked statically (tests, tools). Needs no state from DllMain.
HMODULE orasnap_module();
