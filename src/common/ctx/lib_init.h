#pragma once

#include <string>
#include <vector>

namespace util {

// Starts the library's log and writes the banner. `args` may hold "-log <path>"
// and "-verbose". Returns the log path in use (ANSI), or empty when the start
// failed.
std::string init_common_lib(const std::wstring& log_name, const std::vector<std::wstring>& args);

} // namespace util
