#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

#include "orasnap/orasnap.h"

namespace host {

// orasnap.dll could not be loaded, or lacks an entry point.
class CLibraryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// orasnap.dll loaded by name through the ordinary search order, as the agent loads it
// (the folder of orasnap.exe comes first), with its entry points resolved by name.
class CLibrary {
public:
    CLibrary();
    ~CLibrary();
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;

    // The entry point `name`, typed by the public header; raises when it is missing.
    template <typename Function>
    Function Get(const char* name) const
    {
        // Through void(*)(): the one function pointer type a FARPROC converts to without a warning.
        return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(Resolve(name)));
    }

    // Copies a text the library allocated and gives it back through OracleLibStrFree;
    // a null text is the empty text.
    std::wstring Take(wchar_t* text) const;

private:
    FARPROC Resolve(const char* name) const;

    HMODULE module_ = nullptr;
    decltype(&OracleLibStrFree) strFree_ = nullptr;
};

} // namespace host

// The entry point `name` of a host::CLibrary `library`.
#define ORASNAP_ENTRY(library, name) (library).Get<decltype(&name)>(#name)
