/* Runs a function and catches a structured exception it raises, so a test can see
   that a fault of the simulated client really is one. C, because GCC replaces this
   handler with its own in any C++ function that has objects with destructors. */
#include <windows.h>
#include <excpt.h>

static volatile DWORD g_caught;

__attribute__((used)) long ocisim_test_seh_filter(EXCEPTION_POINTERS* pointers, void* frame)
{
    const DWORD code = pointers->ExceptionRecord->ExceptionCode;
    (void)frame;
    if ((code & 0x00FFFFFF) == 0x474343) /* a C++ exception of GCC */
        return EXCEPTION_CONTINUE_SEARCH;
    g_caught = code;
    return EXCEPTION_EXECUTE_HANDLER;
}

__attribute__((noinline)) DWORD ocisim_test_seh_catch(void (*fn)(void*), void* arg)
{
    g_caught = 0;
    __try1(ocisim_test_seh_filter)
    fn(arg);
    __except1
    return g_caught;
}
