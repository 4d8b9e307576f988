/* Runs a function and catches a structured exception it raises, so a test can see
   that a fault of the simulated client really is one. C, because GCC replaces this
   handler with its own in any C++ function that has objects with destructors. */
#include <windows.h>

static volatile DWORD g_caught;

static long record_code(DWORD code)
{
    if ((code & 0x00FFFFFF) == 0x474343) /* a C++ exception of GCC */
        return EXCEPTION_CONTINUE_SEARCH;
    g_caught = code;
    return EXCEPTION_EXECUTE_HANDLER;
}

#if defined(_MSC_VER)

DWORD ocisim_test_seh_catch(void (*fn)(void*), void* arg)
{
    g_caught = 0;
    __try {
        fn(arg);
    } __except (record_code(GetExceptionCode())) {
    }
    return g_caught;
}

#else
/* MinGW-w64: GCC has no __try/__except; excpt.h gives __try1/__except1, whose
   filter must be a global symbol. */
#include <excpt.h>

__attribute__((used)) long ocisim_test_seh_filter(EXCEPTION_POINTERS* pointers, void* frame)
{
    (void)frame;
    return record_code(pointers->ExceptionRecord->ExceptionCode);
}

__attribute__((noinline)) DWORD ocisim_test_seh_catch(void (*fn)(void*), void* arg)
{
    g_caught = 0;
    __try1(ocisim_test_seh_filter)
    fn(arg);
    __except1
    return g_caught;
}

#endif
