#include "support/orasnap_library.h"

#include <stdexcept>

#include "support/kept_documents.h"
#include "support/process.h"

namespace test {

wchar_t untouched_text[] = L"untouched";

library_t::library_t(bool private_copy)
{
    std::wstring path = L"orasnap.dll";
    if (private_copy) {
        path = folder_.file(L"orasnap_copy.dll");
        if (!CopyFileW((exe_folder() + L"orasnap.dll").c_str(), path.c_str(), FALSE))
            throw std::runtime_error("cannot copy orasnap.dll");
    }
    module_ = LoadLibraryW(path.c_str());
    if (module_ == nullptr)
        throw std::runtime_error("cannot load orasnap.dll");
}

library_t::~library_t()
{
    FreeLibrary(module_);
}

std::wstring library_t::take(wchar_t* text) const
{
    if (text == untouched_text)
        return L"<untouched>";
    if (text == nullptr)
        return L"<null>";
    std::wstring copy(text);
    keep_document(copy);
    ORASNAP_EXPORT(*this, OracleLibStrFree)(text);
    return copy;
}

} // namespace test
