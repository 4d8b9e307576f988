#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <windows.h>

#include "common/win/handle.h"

namespace win {

// Read access in the 64-bit view (KEY_READ | KEY_WOW64_64KEY): every key the
// library reads is opened this way, whatever the bitness of the caller.
constexpr REGSAM reg_read_access_64 = KEY_READ | KEY_WOW64_64KEY;

// One open registry key, read-only in use. A missing value is an ordinary
// result of the tolerant reads; every other failure raises with the value's
// name as its last line.
class win_reg_key_t {
public:
    win_reg_key_t() = default;
    explicit win_reg_key_t(HKEY key) : key_(key) {}

    // The address of the empty handle, for RegOpenKeyEx to fill. An object
    // takes a handle once: a second call raises and keeps the first handle.
    HKEY* put();

    HKEY get() const { return key_.get(); }
    bool is_open() const { return key_.valid(); }

    // REG_SZ or REG_EXPAND_SZ, never expanded. False when the value is absent.
    bool get_string(const std::wstring& name, std::wstring& out) const;
    // ANSI read of a value that must be there.
    std::string get_string(const std::string& name) const;
    std::wstring get_string_or(const std::wstring& name, const std::wstring& default_value) const;

    // REG_DWORD. False when the value is absent.
    bool get_dword(const std::wstring& name, uint32_t& out) const;
    // ANSI read of a value that must be there.
    uint32_t get_dword(const std::string& name) const;
    uint32_t get_dword_or(const std::wstring& name, uint32_t default_value) const;
    bool get_bool_or(const std::wstring& name, bool default_value) const;

    // REG_QWORD, or REG_DWORD in the low half. False when the value is absent.
    bool get_dword_or_qword(const std::wstring& name, uint64_t& out) const;

private:
    unique_hkey_t key_;
};

// The key below `root`, or an empty pointer when it does not exist.
std::shared_ptr<win_reg_key_t> open_subkey(HKEY root, const std::wstring& path,
                                           REGSAM access = reg_read_access_64);

} // namespace win
