#include "support/registry_sandbox.h"

#include <atomic>
#include <stdexcept>

namespace test {

namespace {

std::atomic<unsigned> g_sandbox_number{0};

void check(LONG code, const char* what)
{
    if (code != ERROR_SUCCESS)
        throw std::runtime_error(std::string("registry sandbox: ") + what + " failed with code " +
                                 std::to_string(code));
}

// A key below the private root, created when missing, closed on scope exit.
class scoped_key_t {
public:
    scoped_key_t(HKEY root, const std::wstring& path)
    {
        check(RegCreateKeyExW(root, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_ALL_ACCESS, nullptr, &key_, nullptr),
              "RegCreateKeyExW");
    }
    ~scoped_key_t() { RegCloseKey(key_); }
    scoped_key_t(const scoped_key_t&) = delete;
    scoped_key_t& operator=(const scoped_key_t&) = delete;

    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

} // namespace

registry_sandbox_t::registry_sandbox_t()
{
    private_path_ = L"Software\\orasnap-test\\" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                    std::to_wstring(++g_sandbox_number);
    check(RegCreateKeyExW(HKEY_CURRENT_USER, private_path_.c_str(), 0, nullptr,
                          REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &private_key_, nullptr),
          "RegCreateKeyExW of the private key");
    LONG code = RegOverridePredefKey(HKEY_LOCAL_MACHINE, private_key_);
    if (code != ERROR_SUCCESS) {
        RegCloseKey(private_key_);
        RegDeleteTreeW(HKEY_CURRENT_USER, private_path_.c_str());
        check(code, "RegOverridePredefKey");
    }
}

registry_sandbox_t::~registry_sandbox_t()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(private_key_);
    RegDeleteTreeW(HKEY_CURRENT_USER, private_path_.c_str());
}

void registry_sandbox_t::create_key(const std::wstring& path) const
{
    scoped_key_t key(private_key_, path);
}

void registry_sandbox_t::delete_key(const std::wstring& path) const
{
    // With a subkey named, RegDeleteTreeW removes that key itself as well.
    check(RegDeleteTreeW(private_key_, path.c_str()), "RegDeleteTreeW");
}

void registry_sandbox_t::set_raw(const std::wstring& path, const std::wstring& name, DWORD type,
                                 const void* data, DWORD size) const
{
    scoped_key_t key(private_key_, path);
    check(RegSetValueExW(key.get(), name.c_str(), 0, type, static_cast<const BYTE*>(data), size),
          "RegSetValueExW");
}

void registry_sandbox_t::set_string(const std::wstring& path, const std::wstring& name,
                                    const std::wstring& value, DWORD type) const
{
    set_raw(path, name, type, value.c_str(),
            static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

void registry_sandbox_t::set_multi_string(const std::wstring& path, const std::wstring& name,
                                          const std::vector<std::wstring>& values) const
{
    std::wstring data;
    for (const auto& value : values) {
        data += value;
        data.push_back(L'\0');
    }
    data.push_back(L'\0');
    set_raw(path, name, REG_MULTI_SZ, data.data(), static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

void registry_sandbox_t::set_dword(const std::wstring& path, const std::wstring& name,
                                   uint32_t value) const
{
    set_raw(path, name, REG_DWORD, &value, sizeof(value));
}

void registry_sandbox_t::set_qword(const std::wstring& path, const std::wstring& name,
                                   uint64_t value) const
{
    set_raw(path, name, REG_QWORD, &value, sizeof(value));
}

void registry_sandbox_t::set_binary(const std::wstring& path, const std::wstring& name,
                                    const std::string& bytes) const
{
    set_raw(path, name, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size()));
}

} // namespace test
