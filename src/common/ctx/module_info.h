#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <windows.h>

namespace util {

// "major.minor.build.revision" of a module's fixed file version.
std::string get_version_string(const std::wstring& module_path);
// The module's "Comments" string (US English, Unicode block); empty when it has none.
std::string get_comments(const std::wstring& module_path);

// Numbers of the running system, asked once each and cached.
int32_t get_os_major();
int32_t get_os_minor();
int32_t get_os_build();
int32_t get_os_sp_major();
int32_t get_os_sp_minor();

// What names a system, beside its version numbers.
struct os_traits_t {
    int32_t major = 0;
    int32_t minor = 0;
    BYTE product_type = VER_NT_WORKSTATION;
    WORD suite_mask = 0;
    WORD processor_architecture = PROCESSOR_ARCHITECTURE_INTEL;
    bool server_r2 = false;
};

std::string os_version_name(const os_traits_t& traits);
// Name, " (major.minor.build)" and the service pack, if there is one.
std::string os_version_text(const std::string& name, int32_t major, int32_t minor, int32_t build,
                            int32_t sp_major, int32_t sp_minor);

std::string get_os_version_name();
std::string get_os_version_text();

// The fall-back search for one version number: tries 0 to `limit` with an
// equality test that returns true on a match and leaves its error code
// otherwise. -1 when nothing matched or the test failed with another error
// than a plain mismatch.
int32_t search_version_value(int32_t limit, const std::function<bool(DWORD value, DWORD& error)>& test);

} // namespace util
