#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <windows.h>

namespace test {

// Redirects HKEY_LOCAL_MACHINE of the whole process to a private key under
// HKCU\Software\orasnap-test\<pid>-<n> for the lifetime of the object, so that
// tests never write the real machine keys and two test processes never meet.
// On destruction HKEY_LOCAL_MACHINE is restored and the private key deleted.
// Only one sandbox may live at a time in a process.
//
// The helpers take paths relative to the redirected HKEY_LOCAL_MACHINE, e.g.
// L"SOFTWARE\\ORACLE\\KEY_OraDB19Home1", create missing keys on the way, and
// raise std::runtime_error when a registry call fails.
class registry_sandbox_t {
public:
    registry_sandbox_t();
    ~registry_sandbox_t();
    registry_sandbox_t(const registry_sandbox_t&) = delete;
    registry_sandbox_t& operator=(const registry_sandbox_t&) = delete;

    void create_key(const std::wstring& path) const;
    void delete_key(const std::wstring& path) const;
    void set_string(const std::wstring& path, const std::wstring& name, const std::wstring& value,
                    DWORD type = REG_SZ) const;
    void set_multi_string(const std::wstring& path, const std::wstring& name,
                          const std::vector<std::wstring>& values) const;
    void set_dword(const std::wstring& path, const std::wstring& name, uint32_t value) const;
    void set_qword(const std::wstring& path, const std::wstring& name, uint64_t value) const;
    void set_binary(const std::wstring& path, const std::wstring& name,
                    const std::string& bytes) const;

private:
    void set_raw(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                 DWORD size) const;

    std::wstring private_path_;
    HKEY private_key_ = nullptr;
};

} // namespace test
