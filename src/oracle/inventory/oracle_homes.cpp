#include "oracle/inventory/oracle_homes.h"

#include <locale>

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/registry.h"
#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

namespace {

// Subkey names are read into a buffer of this many characters, terminator
// included: a longer name is an enumeration error, not a truncated name.
constexpr DWORD kSubkeyNameChars = 255;
// Values are read into 260 characters, terminator included: a longer value
// reads as empty, so a home path of 260 characters or more matches nothing.
constexpr DWORD kValueChars = 260;
// The longest value name the registry allows, plus its terminator.
constexpr DWORD kValueNameChars = 16383;

constexpr wchar_t kHomesRoot[] = L"SOFTWARE\\ORACLE";
constexpr wchar_t kServicesRoot[] = L"SYSTEM\\CURRENTCONTROLSET\\SERVICES";

// Opens a key for reading; false when it cannot be opened, whatever the reason.
bool open_for_read(HKEY parent, const std::wstring& path, win::win_reg_key_t& key)
{
    return RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

bool is_string_type(DWORD type)
{
    return type == REG_SZ || type == REG_EXPAND_SZ;
}

// Value names are upper-cased the narrow way: only the letters of the C
// locale change, so a non-ASCII letter in a value name stays as it is.
std::wstring upper_value_name(std::wstring name)
{
    for (wchar_t& c : name) {
        if (c >= L'a' && c <= L'z')
            c = static_cast<wchar_t>(c - L'a' + L'A');
    }
    return name;
}

// The shape ORA_<sid>_AUTOSTART: the first "_AUTOSTART" must end the name.
bool is_autostart_value_name(const std::wstring& upperName)
{
    static const std::wstring suffix = L"_AUTOSTART";
    if (upperName.compare(0, 4, L"ORA_") != 0)
        return false;
    const size_t at = upperName.find(suffix);
    return at != std::wstring::npos && at + suffix.size() == upperName.size();
}

bool equals_folded(const std::wstring& a, const std::wstring& b)
{
    if (a.size() != b.size())
        return false;
    const std::locale locale;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::toupper(a[i], locale) != std::toupper(b[i], locale))
            return false;
    }
    return true;
}

} // namespace

COracleHomes::COracleHomes(const std::vector<std::wstring>& excludes)
    : COracleHomes(excludes, OracleSettings().useAutostartOption)
{
}

COracleHomes::COracleHomes(const std::vector<std::wstring>& excludes, bool useAutostartOption)
{
    try {
        const std::vector<SOracleHome> homes = FindHomes(useAutostartOption);
        const std::vector<SOracleService> services = FindServices();
        sids = FindInstances(homes, services, excludes);
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to create oracle homes.", caught);
    }
}

std::vector<COracleHomes::SOracleHome> COracleHomes::FindHomes(bool useAutostartOption)
{
    try {
        std::vector<SOracleHome> homes;
        win::win_reg_key_t root;
        if (!open_for_read(HKEY_LOCAL_MACHINE, kHomesRoot, root))
            return homes;

        std::vector<std::wstring> names;
        EnumRegSubkeys(root.get(), names);
        for (const std::wstring& name : names) {
            const std::wstring upperName = util::to_upper(name);
            if (upperName.find(L"KEY_") != 0)
                continue;
            win::win_reg_key_t homeKey;
            if (!open_for_read(root.get(), upperName, homeKey))
                continue;

            SOracleHome home;
            home.path = GetRegKeyValue(homeKey.get(), L"ORACLE_HOME");
            home.rdbmsControl = GetRegKeyValue(homeKey.get(), L"RDBMS_CONTROL");
            home.name = GetRegKeyValue(homeKey.get(), L"ORACLE_HOME_NAME");
            home.isAutostart = true;
            if (useAutostartOption)
                ReadHomeAutostart(homeKey.get(), home.isAutostart);
            homes.push_back(home);
        }
        return homes;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to find oracle homes.", caught);
    }
}

std::vector<COracleHomes::SOracleService> COracleHomes::FindServices()
{
    try {
        std::vector<SOracleService> services;
        win::win_reg_key_t root;
        if (!open_for_read(HKEY_LOCAL_MACHINE, kServicesRoot, root))
            return services;

        std::vector<std::wstring> names;
        EnumRegSubkeys(root.get(), names);
        for (const std::wstring& name : names) {
            const std::wstring upperName = util::to_upper(name);
            SOracleService service;
            if (upperName.find(L"ORACLESERVICE") == 0)
                service.isAsm = false;
            else if (upperName.find(L"ORACLEASMSERVICE") == 0)
                service.isAsm = true;
            else
                continue;
            win::win_reg_key_t serviceKey;
            if (!open_for_read(root.get(), upperName, serviceKey))
                continue;

            // "<exe> <sid>": everything before the first blank is the
            // executable, everything behind it the SID. Without a blank both
            // are the whole text; with a leading blank both stay empty.
            const std::wstring image = GetRegKeyValue(serviceKey.get(), L"IMAGEPATH");
            const size_t blank = image.find(L' ');
            if (blank == std::wstring::npos) {
                service.imagePath = image;
                service.sid = image;
            } else if (blank > 0) {
                service.imagePath = image.substr(0, blank);
                service.sid = image.substr(blank + 1);
            }
            services.push_back(service);
        }
        return services;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to find oracle services.", caught);
    }
}

std::vector<SOracleSid> COracleHomes::FindInstances(const std::vector<SOracleHome>& homes,
                                                    const std::vector<SOracleService>& services,
                                                    const std::vector<std::wstring>& excludes)
{
    try {
        std::vector<SOracleSid> result;
        for (const SOracleHome& home : homes) {
            // One backslash always, even after a path that ends in one.
            const std::wstring expected = util::to_upper(home.path + L"\\BIN\\ORACLE.EXE");
            for (const SOracleService& service : services) {
                if (util::to_upper(service.imagePath) != expected)
                    continue;

                SOracleSid sid;
                sid.sid = service.sid;
                sid.isAsm = service.isAsm;
                sid.homePath = home.path;
                sid.homeName = home.name;
                sid.isAutostart = home.isAutostart;
                const std::string narrowSid = util::wide_to_ansi_safe(sid.sid);
                logging::oralib().info("Found oracle instance: %1. Is ASM: %2, is autostart: %3",
                                       narrowSid, util::bool_to_str(sid.isAsm),
                                       util::bool_to_str(sid.isAutostart));
                if (IsExcluded(excludes, sid.sid)) {
                    logging::oralib().info("Database with sid [%1] excluded from processing",
                                           narrowSid);
                    continue;
                }
                result.push_back(sid);
            }
        }
        return result;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to find oracle instances.", caught);
    }
}

void COracleHomes::EnumRegSubkeys(HKEY key, std::vector<std::wstring>& names)
{
    try {
        DWORD count = 0;
        const LONG info = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &count, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (info != ERROR_SUCCESS)
            throw exc::win_sys_exc_t("Failed to query info from oracle reg key",
                                     static_cast<uint32_t>(info));

        wchar_t name[kSubkeyNameChars];
        for (DWORD index = 0; index < count; ++index) {
            DWORD length = kSubkeyNameChars;
            const LONG result = RegEnumKeyExW(key, index, name, &length, nullptr, nullptr,
                                              nullptr, nullptr);
            if (result == ERROR_NO_MORE_ITEMS)
                break;
            if (result != ERROR_SUCCESS)
                throw exc::win_sys_exc_t("Failed to enum oracle home reg key",
                                         static_cast<uint32_t>(result));
            names.emplace_back(name, length);
        }
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to enum reg subkeys.", caught);
    }
}

std::wstring COracleHomes::GetRegKeyValue(HKEY key, const std::wstring& valueName)
{
    try {
        wchar_t data[kValueChars];
        DWORD type = 0;
        DWORD bytes = sizeof(data);
        if (RegQueryValueExW(key, valueName.c_str(), nullptr, &type,
                             reinterpret_cast<BYTE*>(data), &bytes) != ERROR_SUCCESS)
            return std::wstring();
        if (!is_string_type(type) || bytes % sizeof(wchar_t) != 0 || bytes == 0)
            return std::wstring();
        const size_t chars = bytes / sizeof(wchar_t);
        if (data[chars - 1] != L'\0')
            return std::wstring();
        return std::wstring(data);
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to get reg key value.", caught);
    }
}

void COracleHomes::ReadHomeAutostart(HKEY homeKey, bool& isAutostart)
{
    try {
        isAutostart = true;
        DWORD count = 0;
        const LONG info = RegQueryInfoKeyW(homeKey, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, &count, nullptr, nullptr, nullptr, nullptr);
        if (info != ERROR_SUCCESS)
            throw exc::win_sys_exc_t("Failed to query info from oracle reg key",
                                     static_cast<uint32_t>(info));

        // The flag belongs to the home: the first ORA_<sid>_AUTOSTART value in
        // enumeration order decides for every instance of the home, and the
        // SID in its name is never looked at.
        std::wstring name(kValueNameChars, L'\0');
        for (DWORD index = 0; index < count; ++index) {
            DWORD length = kValueNameChars;
            DWORD type = 0;
            const LONG result = RegEnumValueW(homeKey, index, &name[0], &length, nullptr, &type,
                                              nullptr, nullptr);
            if (result != ERROR_SUCCESS && result != ERROR_MORE_DATA)
                throw exc::win_sys_exc_t("Failed to enum oracle home reg key",
                                         static_cast<uint32_t>(result));
            if (length == 0 || !is_string_type(type))
                continue;
            const std::wstring valueName = name.substr(0, length);
            if (!is_autostart_value_name(upper_value_name(valueName)))
                continue;
            isAutostart = util::str_to_bool(util::wide_to_ansi(GetRegKeyValue(homeKey, valueName)));
            return;
        }
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("COracleHomes: failed to enum reg subkeys.", caught);
    }
}

bool COracleHomes::IsExcluded(const std::vector<std::wstring>& excludes, const std::wstring& sid)
{
    for (const std::wstring& exclude : excludes) {
        if (equals_folded(exclude, sid))
            return true;
    }
    return false;
}

} // namespace oracle
} // namespace specific
