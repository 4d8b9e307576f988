#include "boundary/error_string.h"

#include <cstdlib>
#include <cwchar>

#include "common/logging/log.h"
#include "common/strings/strings.h"

namespace specific {
namespace oracle {

wchar_t* CopyToHeap(const std::wstring& text) noexcept
{
    const size_t length = std::wcslen(text.c_str());
    auto* copy = static_cast<wchar_t*>(std::malloc((length + 1) * sizeof(wchar_t)));
    if (copy != nullptr)
        std::wmemcpy(copy, text.c_str(), length + 1);
    return copy;
}

wchar_t* MakeErrorString(const std::string& context, const std::exception& e) noexcept
{
    logging::oralib().error_exc(context, e);
    try {
        const char* what = e.what();
        return CopyToHeap(what != nullptr ? util::ansi_to_wide_safe(what) : std::wstring());
    } catch (...) {
        // Only an exhausted heap gets here; the caller then sees E_FAIL without a text.
        return nullptr;
    }
}

} // namespace oracle
} // namespace specific
