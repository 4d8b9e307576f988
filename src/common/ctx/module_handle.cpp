#include "common/ctx/module_handle.h"

HMODULE orasnap_module() {
    HMODULE module = nullptr;
    // Any address inside this module identifies it; the reference count is left alone
    // so no FreeLibrary is owed.
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCWSTR>(&orasnap_module), &module);
    return module;
}
