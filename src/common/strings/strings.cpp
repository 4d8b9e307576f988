#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/handle.h"
#include "common/win/last_error.h"

#include <objbase.h>
#include <rpc.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <sstream>

namespace util {
namespace {

char lower_ascii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

const char base64_alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64_value(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

} // namespace

int32_t str_to_int(const std::string& text)
{
    const char* start = text.c_str();
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(start, &end, 10);
    if (end == start)
        throw exc::runtime_exc_t(
            "Cannot convert string value to signed integer. Given string: [%1].", text);
    // long is 64-bit on some hosts; keep the 32-bit saturation of the target.
    if (value > INT32_MAX)
        value = INT32_MAX;
    if (value < INT32_MIN)
        value = INT32_MIN;
    return static_cast<int32_t>(value);
}

int32_t str_to_int(const std::wstring& text)
{
    return str_to_int(wide_to_ansi(text));
}

bool str_to_bool(const std::string& text)
{
    if (iequals(text, "true"))
        return true;
    if (iequals(text, "false"))
        return false;
    return text != "0";
}

std::string bool_to_str(bool value)
{
    return value ? "true" : "false";
}


std::string hex_str(uint32_t value)
{
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08x", static_cast<unsigned>(value));
    return buffer;
}

std::string hex_str(int32_t value)
{
    return hex_str(static_cast<uint32_t>(value));
}

std::string hex_str(uint64_t value)
{
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%016llx", static_cast<unsigned long long>(value));
    return buffer;
}

std::string base64_encode(const std::string& bytes)
{
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const uint32_t n = (static_cast<uint8_t>(bytes[i]) << 16) |
                           (static_cast<uint8_t>(bytes[i + 1]) << 8) |
                           static_cast<uint8_t>(bytes[i + 2]);
        out.push_back(base64_alphabet[(n >> 18) & 63]);
        out.push_back(base64_alphabet[(n >> 12) & 63]);
        out.push_back(base64_alphabet[(n >> 6) & 63]);
        out.push_back(base64_alphabet[n & 63]);
    }
    const size_t rest = bytes.size() - i;
    if (rest == 1) {
        const uint32_t n = static_cast<uint8_t>(bytes[i]) << 16;
        out.push_back(base64_alphabet[(n >> 18) & 63]);
        out.push_back(base64_alphabet[(n >> 12) & 63]);
        out += "==";
    } else if (rest == 2) {
        const uint32_t n = (static_cast<uint8_t>(bytes[i]) << 16) |
                           (static_cast<uint8_t>(bytes[i + 1]) << 8);
        out.push_back(base64_alphabet[(n >> 18) & 63]);
        out.push_back(base64_alphabet[(n >> 12) & 63]);
        out.push_back(base64_alphabet[(n >> 6) & 63]);
        out.push_back('=');
    }
    return out;
}

std::string base64_decode(const std::string& text)
{
    std::string out;
    uint32_t accumulator = 0;
    int bits = 0;
    for (char c : text) {
        if (c == '=')
            break;
        const int value = base64_value(c);
        if (value < 0)
            continue;
        accumulator = (accumulator << 6) | static_cast<uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((accumulator >> bits) & 0xFF));
        }
    }
    return out;
}

std::wstring guid_to_str(const GUID& guid)
{
    RPC_WSTR text = nullptr;
    GUID copy = guid;
    if (UuidToStringW(&copy, &text) != RPC_S_OK || text == nullptr)
        win::throw_last_error("Failed to convert GUID to string.");
    const auto free_text = win::scope_exit([&text] { RpcStringFreeW(&text); });
    return L"{" + std::wstring(reinterpret_cast<wchar_t*>(text)) + L"}";
}

GUID new_guid()
{
    GUID guid{};
    CoCreateGuid(&guid);
    return guid;
}

bool iequals(const std::string& a, const std::string& b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](char x, char y) { return lower_ascii(x) == lower_ascii(y); });
}

bool iequals(const std::wstring& a, const std::wstring& b)
{
    return a.size() == b.size() && _wcsicmp(a.c_str(), b.c_str()) == 0;
}

std::string to_upper(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    return text;
}

std::wstring to_upper(std::wstring text)
{
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(std::towupper(c));
    return text;
}

bool starts_with(const std::wstring& text, const std::wstring& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

bool istarts_with(const std::wstring& text, const std::wstring& prefix)
{
    return text.size() >= prefix.size() && iequals(text.substr(0, prefix.size()), prefix);
}

bool ends_with(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           iequals(text.substr(text.size() - suffix.size()), suffix);
}

int index_of_arg(const std::vector<std::wstring>& list, const std::wstring& word)
{
    for (size_t i = 0; i < list.size(); ++i)
        if (iequals(list[i], word))
            return static_cast<int>(i);
    return -1;
}

std::string strip_line_end(const std::string& text)
{
    if (text.size() >= 2 && text.compare(text.size() - 2, 2, "\r\n") == 0)
        return text.substr(0, text.size() - 2);
    return text;
}

} // namespace util
