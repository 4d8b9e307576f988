#include "common/win/registry.h"

#include "common/exc/exc.h"
#include "common/strings/strings.h"

namespace win {

namespace {

bool is_absent(LONG code)
{
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

bool is_string_type(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

void check_type(bool accepted, DWORD type)
{
    if (!accepted)
        throw exc::runtime_exc_t("Unexpected registry type: [%1].", util::int_to_str(type));
}

void check_open(HKEY key)
{
    if (key == nullptr)
        throw exc::runtime_exc_t("Registry key object is not initialized.");
}

[[noreturn]] void throw_value_failure(const std::string& name, const std::exception& caught)
{
    exc::throw_nested(util::format_msg("Cannot retrieve a registry value. Value name: [%1].", name),
                      caught);
}

template <typename Text>
void strip_terminators(Text& text)
{
    while (!text.empty() && text.back() == 0)
        text.pop_back();
}

LONG query_value(HKEY key, const std::wstring& name, DWORD* type, BYTE* data, DWORD* size)
{
    return RegQueryValueExW(key, name.c_str(), nullptr, type, data, size);
}

LONG query_value(HKEY key, const std::string& name, DWORD* type, BYTE* data, DWORD* size)
{
    return RegQueryValueExA(key, name.c_str(), nullptr, type, data, size);
}

// Size query first, then reads until the buffer is large enough (the value may
// grow between two calls). Returns ERROR_SUCCESS with the value in out, or the
// code of an absent value at either step; other failures throw.
template <typename Char>
LONG query_string(HKEY key, const std::basic_string<Char>& name, std::basic_string<Char>& out)
{
    DWORD type = 0;
    DWORD size = 0;
    LONG code = query_value(key, name, &type, nullptr, &size);
    if (is_absent(code))
        return code;
    if (code != ERROR_SUCCESS)
        throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
    check_type(is_string_type(type), type);
    for (;;) {
        std::basic_string<Char> buffer(size / sizeof(Char) + 1, Char(0));
        DWORD got = static_cast<DWORD>(buffer.size() * sizeof(Char));
        code = query_value(key, name, &type, reinterpret_cast<BYTE*>(&buffer[0]), &got);
        if (is_absent(code))
            return code;
        if (code == ERROR_MORE_DATA) {
            size = got;
            continue;
        }
        if (code != ERROR_SUCCESS)
            throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
        check_type(is_string_type(type), type);
        buffer.resize(got / sizeof(Char));
        strip_terminators(buffer);
        out = buffer;
        return ERROR_SUCCESS;
    }
}

// A REG_DWORD in one call with a four-byte buffer. A larger value of another
// type reports ERROR_MORE_DATA with its type, and so fails on the type.
// Returns ERROR_SUCCESS with the value in out, or the code of an absent
// value; other failures throw.
template <typename Char>
LONG query_dword(HKEY key, const std::basic_string<Char>& name, uint32_t& out)
{
    DWORD type = 0;
    DWORD value = 0;
    DWORD size = sizeof(value);
    LONG code = query_value(key, name, &type, reinterpret_cast<BYTE*>(&value), &size);
    if (is_absent(code))
        return code;
    if (code != ERROR_SUCCESS && code != ERROR_MORE_DATA)
        throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
    check_type(type == REG_DWORD, type);
    if (code != ERROR_SUCCESS)
        throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
    out = value;
    return ERROR_SUCCESS;
}

// The ANSI readers have no answer for an absent value: it is a failure.
void require_present(LONG code)
{
    if (code != ERROR_SUCCESS)
        throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
}

} // namespace

HKEY* win_reg_key_t::put()
{
    // The text stays as log readers know it, naming the operator this once was.
    if (key_.valid())
        throw exc::runtime_exc_t(
            "operator& cannot be called because registry key already initialized.");
    return key_.put();
}

bool win_reg_key_t::get_string(const std::wstring& name, std::wstring& out) const
{
    try {
        check_open(key_.get());
        return query_string(key_.get(), name, out) == ERROR_SUCCESS;
    } catch (const std::exception& e) {
        throw_value_failure(util::wide_to_ansi_safe(name), e);
    }
}

std::string win_reg_key_t::get_string(const std::string& name) const
{
    try {
        check_open(key_.get());
        std::string value;
        require_present(query_string(key_.get(), name, value));
        return value;
    } catch (const std::exception& e) {
        throw_value_failure(name, e);
    }
}

std::wstring win_reg_key_t::get_string_or(const std::wstring& name,
                                          const std::wstring& default_value) const
{
    std::wstring value;
    return get_string(name, value) ? value : default_value;
}

bool win_reg_key_t::get_dword(const std::wstring& name, uint32_t& out) const
{
    try {
        check_open(key_.get());
        return query_dword(key_.get(), name, out) == ERROR_SUCCESS;
    } catch (const std::exception& e) {
        throw_value_failure(util::wide_to_ansi_safe(name), e);
    }
}

uint32_t win_reg_key_t::get_dword(const std::string& name) const
{
    try {
        check_open(key_.get());
        uint32_t value = 0;
        require_present(query_dword(key_.get(), name, value));
        return value;
    } catch (const std::exception& e) {
        throw_value_failure(name, e);
    }
}

uint32_t win_reg_key_t::get_dword_or(const std::wstring& name, uint32_t default_value) const
{
    uint32_t value = 0;
    return get_dword(name, value) ? value : default_value;
}

bool win_reg_key_t::get_bool_or(const std::wstring& name, bool default_value) const
{
    uint32_t value = 0;
    return get_dword(name, value) ? value != 0 : default_value;
}

bool win_reg_key_t::get_dword_or_qword(const std::wstring& name, uint64_t& out) const
{
    try {
        check_open(key_.get());
        DWORD type = 0;
        uint64_t value = 0;
        DWORD size = sizeof(value);
        LONG code = RegQueryValueExW(key_.get(), name.c_str(), nullptr, &type,
                                     reinterpret_cast<BYTE*>(&value), &size);
        if (is_absent(code))
            return false;
        if (code != ERROR_SUCCESS && code != ERROR_MORE_DATA)
            throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
        check_type(type == REG_DWORD || type == REG_QWORD, type);
        if (code != ERROR_SUCCESS)
            throw exc::win_sys_exc_t(static_cast<uint32_t>(code));
        out = type == REG_DWORD ? static_cast<uint32_t>(value) : value;
        return true;
    } catch (const std::exception& e) {
        throw_value_failure(util::wide_to_ansi_safe(name), e);
    }
}

std::shared_ptr<win_reg_key_t> open_subkey(HKEY root, const std::wstring& path, REGSAM access)
{
    auto key = std::make_shared<win_reg_key_t>();
    LONG code = RegOpenKeyExW(root, path.c_str(), 0, access, key->put());
    if (is_absent(code))
        return nullptr;
    if (code != ERROR_SUCCESS)
        throw exc::win_sys_exc_t("Failed to open subkey. Path: [%1].",
                                 util::wide_to_ansi_safe(path), static_cast<uint32_t>(code));
    return key;
}

} // namespace win
