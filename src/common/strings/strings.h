#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <windows.h>

namespace util {

// Narrow text is ANSI (code page 0) or UTF-8 (65001); the type doesn't say
// which, so every call site picks its pair on purpose.
std::string wide_to_ansi(const std::wstring& text);
std::wstring ansi_to_wide(const std::string& text);
std::string wide_to_utf8(const std::wstring& text);
std::wstring utf8_to_wide(const std::string& text);
std::string ansi_to_utf8(const std::string& text);

// Forms for error paths, where a second failure would hide the first.
std::string wide_to_ansi_safe(const std::wstring& text) noexcept;
std::wstring ansi_to_wide_safe(const std::string& text) noexcept;
std::string ansi_to_utf8_safe(const std::string& text) noexcept;

// "%N" placeholders, N from 1 to the number of arguments. See format_msg.cpp.
std::string format_msg_list(const std::string& format, const std::vector<std::string>& args);
std::wstring format_msg_list(const std::wstring& format, const std::vector<std::wstring>& args);
template <typename... Args>
std::string format_msg(const std::string& format, const Args&... args)
{
    return format_msg_list(format, {std::string(args)...});
}
template <typename... Args>
std::wstring format_msg(const std::wstring& format, const Args&... args)
{
    return format_msg_list(format, {std::wstring(args)...});
}

int32_t str_to_int(const std::string& text);
int32_t str_to_int(const std::wstring& text);
bool str_to_bool(const std::string& text);
std::string bool_to_str(bool value);

// Decimal form of any integer type (DWORD, LONG, size_t and the fixed widths).
template <typename T, typename = std::enable_if_t<std::is_integral<T>::value>>
std::string int_to_str(T value)
{
    std::ostringstream stream;
    stream << +value;
    return stream.str();
}

template <typename T, typename = std::enable_if_t<std::is_integral<T>::value>>
std::wstring int_to_wstr(T value)
{
    std::wostringstream stream;
    stream << +value;
    return stream.str();
}

std::string hex_str(uint32_t value);
std::string hex_str(int32_t value);
std::string hex_str(uint64_t value);

// Bytes are carried in std::string.
std::string base64_encode(const std::string& bytes);
std::string base64_decode(const std::string& text);

std::wstring guid_to_str(const GUID& guid);
GUID new_guid();

// Exact: every character as it stands.
bool starts_with(const std::wstring& text, const std::wstring& prefix);

// Comparisons without regard to case.
bool istarts_with(const std::wstring& text, const std::wstring& prefix);
bool ends_with(const std::string& text, const std::string& suffix);
bool iequals(const std::string& a, const std::string& b);
bool iequals(const std::wstring& a, const std::wstring& b);
std::string to_upper(std::string text);
std::wstring to_upper(std::wstring text);
int index_of_arg(const std::vector<std::wstring>& list, const std::wstring& word);

std::string strip_line_end(const std::string& text);

} // namespace util
