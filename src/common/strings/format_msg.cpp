#include "common/strings/strings.h"

#include <cstdlib>
#include <cwchar>

namespace util {
namespace {

// Scans like strtol so that "% 1" is argument 1, "%-1" stays literal and
// "%12" is argument 12; arguments are copied, never scanned again.
template <typename Char, typename Parse>
std::basic_string<Char> format_impl(const std::basic_string<Char>& format,
                                    const std::vector<std::basic_string<Char>>& args,
                                    Parse parse)
{
    std::basic_string<Char> result;
    result.reserve(format.size() + 16);
    const Char* p = format.c_str();
    while (*p != 0) {
        if (*p != Char('%')) {
            result.push_back(*p++);
            continue;
        }
        Char* end = nullptr;
        const long number = parse(p + 1, &end);
        if (end == p + 1) {
            result.push_back(Char('%'));
            ++p;
            continue;
        }
        p = end;
        if (number >= 1 && static_cast<size_t>(number) <= args.size()) {
            result += args[static_cast<size_t>(number) - 1];
        } else {
            result.push_back(Char('%'));
            const std::string digits = std::to_string(number);
            result.append(digits.begin(), digits.end());
        }
    }
    return result;
}

} // namespace

std::string format_msg_list(const std::string& format, const std::vector<std::string>& args)
{
    return format_impl<char>(format, args,
                             [](const char* s, char** end) { return std::strtol(s, end, 10); });
}

std::wstring format_msg_list(const std::wstring& format, const std::vector<std::wstring>& args)
{
    return format_impl<wchar_t>(
        format, args, [](const wchar_t* s, wchar_t** end) { return std::wcstol(s, end, 10); });
}

} // namespace util
