#include "support/process.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>

namespace test {

std::wstring exe_path()
{
    std::wstring path(MAX_PATH, L'\0');
    const DWORD length = GetModuleFileNameW(nullptr, &path[0], static_cast<DWORD>(path.size()));
    path.resize(length);
    return path;
}

std::wstring exe_folder()
{
    const std::wstring path = exe_path();
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

std::wstring env_value(const std::wstring& name)
{
    const DWORD size = GetEnvironmentVariableW(name.c_str(), nullptr, 0);
    if (size == 0)
        return std::wstring();
    std::wstring value(size, L'\0');
    value.resize(GetEnvironmentVariableW(name.c_str(), &value[0], size));
    return value;
}

void set_process_env(const std::wstring& name, const std::wstring& value)
{
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    _wputenv((name + L"=" + value).c_str());
}

std::string replace_all(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

bool has_line_ending_with(const std::vector<std::string>& lines, const std::string& text)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.size() >= text.size() && line.compare(line.size() - text.size(), text.size(), text) == 0;
    });
}

time_zone_override_t::time_zone_override_t(const std::string& zone) : previous_(env_value(L"TZ"))
{
    set_process_env(L"TZ", std::wstring(zone.begin(), zone.end()));
    _tzset();
}

time_zone_override_t::~time_zone_override_t()
{
    set_process_env(L"TZ", previous_);
    _tzset();
}

} // namespace test
