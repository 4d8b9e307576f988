#pragma once

#include <string>
#include <vector>

namespace test {

// The running executable, and its folder with a trailing backslash.
std::wstring exe_path();
std::wstring exe_folder();

// A variable of this process's environment; empty when it is not set.
std::wstring env_value(const std::wstring& name);
// Sets a variable for this process and the C runtime's copy; an empty value removes it.
void set_process_env(const std::wstring& name, const std::wstring& value);

// `text` with every `from` replaced by `to`, left to right.
std::string replace_all(std::string text, const std::string& from, const std::string& to);

// Whether one of `lines` ends with `text`.
bool has_line_ending_with(const std::vector<std::string>& lines, const std::string& text);

// Sets the time zone for the life of the object, as a POSIX text ("XYZ-3" is three
// hours east of UTC), and puts the previous one back. Under Wine this reaches what
// reads local time through the C runtime (the log's time column) and the processes
// started meanwhile; the Win32 zone (GetTimeZoneInformation, GetLocalTime) follows
// only the TZ the Wine process was started with, so it cannot be changed from inside.
class time_zone_override_t {
public:
    explicit time_zone_override_t(const std::string& zone);
    ~time_zone_override_t();
    time_zone_override_t(const time_zone_override_t&) = delete;
    time_zone_override_t& operator=(const time_zone_override_t&) = delete;

private:
    std::wstring previous_;
};

} // namespace test
