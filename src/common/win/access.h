#pragma once

#include <memory>
#include <string>

namespace win {

class win_impersonation_session_t;

// Every file operation asks the library context whether the path is allowed,
// then holds an impersonation session for the path while it works.
void check_access(const std::wstring& path);
void check_access(const std::string& utf8_path);

std::shared_ptr<win_impersonation_session_t> get_session(const std::wstring& path);
std::shared_ptr<win_impersonation_session_t> get_session(const std::string& path);

} // namespace win
