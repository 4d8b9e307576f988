#pragma once

#include <windows.h>

#include <functional>
#include <string>

#include "orasnap/orasnap.h"
#include "support/temp_folder.h"

namespace test {

// The built orasnap.dll loaded as the agent loads it, its entry points resolved
// by name and typed by the public header. With `private_copy` it is a copy under
// another name in a folder of its own: another module, with singletons of its own.
class library_t {
public:
    explicit library_t(bool private_copy = false);
    ~library_t();
    library_t(const library_t&) = delete;
    library_t& operator=(const library_t&) = delete;

    HMODULE module() const { return module_; }

    template <typename Function>
    Function get(const char* name) const
    {
        // Through void(*)(): the one function pointer type a FARPROC converts to without a warning.
        return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module_, name)));
    }

    // Reads a text the library allocated, gives it back through OracleLibStrFree, and
    // tells a null one ("<null>") from an untouched cell ("<untouched>"). A document
    // is kept for the schema check (support/kept_documents.h).
    std::wstring take(wchar_t* text) const;

private:
    temp_folder_t folder_;
    HMODULE module_ = nullptr;
};

// What one export call gave: its status and its texts, read and given back
// (empty where the library wrote none).
struct export_call_t {
    HRESULT status = E_FAIL;
    std::wstring result;
    std::wstring error;
};

// Runs `call` with a result cell and an error cell on a thread of its own and
// waits for it `deadline_ms`. False when it did not return in time: the thread
// is left running, and the caller should end the process, as the hung call may
// hold anything.
bool call_with_deadline(const library_t& library, DWORD deadline_ms,
                        const std::function<HRESULT(wchar_t**, wchar_t**)>& call, export_call_t& done);

// Stands in a text cell until the library writes one; compared by address.
extern wchar_t untouched_text[];

} // namespace test

// The entry point `name` of a loaded test::library_t `library`, typed by the public header.
#define ORASNAP_EXPORT(library, name) (library).get<decltype(&name)>(#name)
