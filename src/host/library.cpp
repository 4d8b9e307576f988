#include "host/library.h"

#include "host/console.h"

namespace host {

CLibrary::CLibrary()
{
    module_ = LoadLibraryW(L"orasnap.dll");
    if (module_ == nullptr)
        throw CLibraryError("Cannot load orasnap.dll: " + SystemMessage(GetLastError()));
    try {
        strFree_ = ORASNAP_ENTRY(*this, OracleLibStrFree);
    } catch (...) {
        FreeLibrary(module_);
        throw;
    }
}

CLibrary::~CLibrary()
{
    FreeLibrary(module_);
}

FARPROC CLibrary::Resolve(const char* name) const
{
    const FARPROC entry = GetProcAddress(module_, name);
    if (entry == nullptr)
        throw CLibraryError(std::string("orasnap.dll has no entry point ") + name + ": " +
                            SystemMessage(GetLastError()));
    return entry;
}

std::wstring CLibrary::Take(wchar_t* text) const
{
    if (text == nullptr)
        return std::wstring();
    struct CRelease {
        decltype(&OracleLibStrFree) free;
        wchar_t* text;
        ~CRelease() { free(text); }
    } release{strFree_, text};
    return std::wstring(text);
}

} // namespace host
