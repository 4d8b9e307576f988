#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"

#include <vector>

namespace util {
namespace {

constexpr UINT ansi_code_page = CP_ACP;
constexpr UINT utf8_code_page = CP_UTF8;

// The source is passed with its terminator, and the result is taken as a C
// string, so an embedded NUL cuts the text there.
std::string to_narrow(const std::wstring& text, UINT code_page, const char* failure)
{
    if (text.empty())
        return std::string();
    const int source_size = static_cast<int>(text.size() + 1);
    int needed = WideCharToMultiByte(code_page, 0, text.c_str(), source_size, nullptr, 0,
                                     nullptr, nullptr);
    if (needed <= 0)
        win::throw_last_error(failure);
    std::vector<char> buffer(static_cast<size_t>(needed));
    needed = WideCharToMultiByte(code_page, 0, text.c_str(), source_size, buffer.data(), needed,
                                 nullptr, nullptr);
    if (needed <= 0)
        win::throw_last_error(failure);
    return std::string(buffer.data());
}

std::wstring to_wide(const std::string& text, UINT code_page, const char* failure_format)
{
    if (text.empty())
        return std::wstring();
    const int source_size = static_cast<int>(text.size() + 1);
    int needed = MultiByteToWideChar(code_page, 0, text.c_str(), source_size, nullptr, 0);
    if (needed <= 0)
        win::throw_last_error(failure_format, text);
    std::vector<wchar_t> buffer(static_cast<size_t>(needed));
    needed = MultiByteToWideChar(code_page, 0, text.c_str(), source_size, buffer.data(), needed);
    if (needed <= 0)
        win::throw_last_error(failure_format, text);
    return std::wstring(buffer.data());
}

} // namespace

std::string wide_to_ansi(const std::wstring& text)
{
    return to_narrow(text, ansi_code_page,
                     "Unicode string cannot be converted to multibyte string.");
}

std::wstring ansi_to_wide(const std::string& text)
{
    return to_wide(text, ansi_code_page,
                   "Multibyte string cannot be converted to unicode string. Source string: [%1].");
}

std::string wide_to_utf8(const std::wstring& text)
{
    return to_narrow(text, utf8_code_page, "Unicode string cannot be converted to UTF8 string.");
}

std::wstring utf8_to_wide(const std::string& text)
{
    return to_wide(text, utf8_code_page,
                   "Multibyte UTF8 string cannot be converted to unicode string. Source string: "
                   "[%1].");
}

std::string ansi_to_utf8(const std::string& text)
{
    return wide_to_utf8(ansi_to_wide(text));
}

std::string wide_to_ansi_safe(const std::wstring& text) noexcept
{
    try {
        return wide_to_ansi(text);
    } catch (...) {
        return "UNICODE->ANSI failed";
    }
}

std::wstring ansi_to_wide_safe(const std::string& text) noexcept
{
    try {
        return ansi_to_wide(text);
    } catch (...) {
        return L"ANSI -> UNICODE failed.";
    }
}

std::string ansi_to_utf8_safe(const std::string& text) noexcept
{
    try {
        return ansi_to_utf8(text);
    } catch (...) {
        try {
            return text;
        } catch (...) {
            return std::string();
        }
    }
}

} // namespace util
