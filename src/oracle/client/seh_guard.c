#include "oracle/client/seh_guard.h"

#include <windows.h>
#include <excpt.h>

/* Codes that are not faults: C++ exceptions of GCC (0x20474343 and its two
   siblings) and of MSVC, and the informational codes of thread naming and
   debug output. They are left to the handlers further out. */
static int is_passed_on(DWORD code)
{
    return (code & 0x00FFFFFFu) == 0x00474343u || code == 0xE06D7363u || code == 0x406D1388u ||
           code == 0x40010006u || code == 0x4001000Au;
}

#ifdef _MSC_VER

/* ---- MSVC: the compiler's own structured exception handling. ---- */

static int orasnap_seh_filter(DWORD code, volatile DWORD* out)
{
    if (is_passed_on(code))
        return EXCEPTION_CONTINUE_SEARCH;
    *out = code;
    return EXCEPTION_EXECUTE_HANDLER;
}

unsigned long orasnap_seh_guarded_call(orasnap_guarded_fn fn, void* arg)
{
    volatile DWORD code = 0;
    __try {
        fn(arg);
    } __except (orasnap_seh_filter(GetExceptionCode(), &code)) {
    }
    return code;
}

#else

/* ---- MinGW-w64 GCC, which has no __try: the one place that uses its
   __try1/__except1 scope-table macros. They may appear once per translation
   unit (fixed labels), only in C (a C++ function with cleanups would have its
   handler replaced by the C++ personality), and the filter must be a global
   symbol. The filter runs on the faulting stack, so it only records the code,
   in a slot of the guarded thread. ---- */

static INIT_ONCE g_slot_once = INIT_ONCE_STATIC_INIT;
static DWORD g_code_slot = TLS_OUT_OF_INDEXES;

static BOOL CALLBACK alloc_code_slot(PINIT_ONCE once, PVOID param, PVOID* context)
{
    (void)once;
    (void)param;
    (void)context;
    g_code_slot = TlsAlloc();
    return g_code_slot != TLS_OUT_OF_INDEXES;
}

__attribute__((used)) long orasnap_seh_filter(EXCEPTION_POINTERS* pointers, void* frame)
{
    const DWORD code = pointers->ExceptionRecord->ExceptionCode;
    volatile DWORD* out = (volatile DWORD*)TlsGetValue(g_code_slot);
    (void)frame;
    if (is_passed_on(code) || out == NULL)
        return EXCEPTION_CONTINUE_SEARCH;
    *out = code;
    return EXCEPTION_EXECUTE_HANDLER;
}

__attribute__((noinline)) unsigned long orasnap_seh_guarded_call(orasnap_guarded_fn fn, void* arg)
{
    volatile DWORD code = 0;
    void* previous;
    if (!InitOnceExecuteOnce(&g_slot_once, alloc_code_slot, NULL, NULL)) {
        /* Without a slot the filter can't report: run unguarded rather than not at all. */
        fn(arg);
        return 0;
    }
    previous = TlsGetValue(g_code_slot);
    TlsSetValue(g_code_slot, (void*)&code);
    __try1(orasnap_seh_filter)
    fn(arg);
    __except1
    TlsSetValue(g_code_slot, previous);
    return code;
}

#endif
