#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include <windows.h>

#include "common/exc/exc.h"
#include "common/strings/strings.h"

namespace win {

class path_param_t;

// The texts of a failure message. A text that takes work to make (a
// conversion, a number, a path's other form) is given as a callable, or as the
// path itself, and is made only once the error code is safe.
std::string message_text(const path_param_t& path);
inline std::string message_text(const std::string& text) { return text; }
inline std::string message_text(const char* text) { return text; }
template <typename Source, typename = std::enable_if_t<std::is_invocable_v<const Source&>>>
std::string message_text(const Source& source)
{
    return source();
}

// Raises exc::win_sys_exc_t for the Win32 call that has just failed. The
// thread's last error is read before anything else runs, so nothing that
// builds the message can change the code it reports.
[[noreturn]] inline void throw_last_error()
{
    throw exc::win_sys_exc_t(GetLastError());
}

template <typename... Sources>
[[noreturn]] void throw_last_error(const char* format, const Sources&... sources)
{
    const DWORD code = GetLastError();
    if constexpr (sizeof...(Sources) == 0)
        throw exc::win_sys_exc_t(format, code);
    else
        throw exc::win_sys_exc_t(util::format_msg_list(format, {message_text(sources)...}), code);
}

} // namespace win
