#pragma once

#include <windows.h>

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

// Stands in a text cell until the library writes one; compared by address.
extern wchar_t untouched_text[];

} // namespace test

// The entry point `name` of a loaded test::library_t `library`, typed by the public header.
#define ORASNAP_EXPORT(library, name) (library).get<decltype(&name)>(#name)
