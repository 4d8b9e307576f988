#include "common/ctx/module_info.h"

#include <mutex>
#include <vector>

#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"

namespace util {

namespace {

std::vector<BYTE> load_version_info(const std::wstring& module_path)
{
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(module_path.c_str(), &ignored);
    if (size == 0)
        win::throw_last_error("Size of the version resource is unknown.");
    std::vector<BYTE> info(size);
    if (!GetFileVersionInfoW(module_path.c_str(), 0, size, info.data()))
        win::throw_last_error("GetFileVersionInfo() function call has failed.");
    return info;
}

[[noreturn]] void rethrow_for_module(const std::wstring& module_path, const std::exception& e)
{
    exc::throw_nested(
        format_msg("Cannot retrieve the version of the specified module. Module path: [%1].",
                   wide_to_utf8(module_path)),
        e);
}

typedef LONG(WINAPI* rtl_get_version_t)(RTL_OSVERSIONINFOEXW*);

// The five numbers, -1 while unknown.
struct os_numbers_t {
    std::mutex mutex;
    int32_t major = -1;
    int32_t minor = -1;
    int32_t build = -1;
    int32_t sp_major = -1;
    int32_t sp_minor = -1;
};

os_numbers_t& os_numbers()
{
    static os_numbers_t numbers;
    return numbers;
}

bool ask_rtl_get_version(os_numbers_t& numbers)
{
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    if (ntdll == nullptr)
        return false;
    auto rtl_get_version = reinterpret_cast<rtl_get_version_t>(
        reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")));
    if (rtl_get_version == nullptr)
        return false;
    RTL_OSVERSIONINFOEXW info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    if (rtl_get_version(&info) != 0)
        return false;
    numbers.major = static_cast<int32_t>(info.dwMajorVersion);
    numbers.minor = static_cast<int32_t>(info.dwMinorVersion);
    numbers.build = static_cast<int32_t>(info.dwBuildNumber);
    numbers.sp_major = info.wServicePackMajor;
    numbers.sp_minor = info.wServicePackMinor;
    return true;
}

// One number: the cached value, else the system's answer, else the search
// through the version test for that number alone.
int32_t os_number(int32_t os_numbers_t::*field, DWORD type, int32_t limit,
                  void (*set)(OSVERSIONINFOEXA&, DWORD))
{
    os_numbers_t& numbers = os_numbers();
    std::lock_guard<std::mutex> lock(numbers.mutex);
    if (numbers.*field >= 0)
        return numbers.*field;
    if (ask_rtl_get_version(numbers))
        return numbers.*field;
    const int32_t found = search_version_value(limit, [&](DWORD value, DWORD& error) {
        OSVERSIONINFOEXA info = {};
        info.dwOSVersionInfoSize = sizeof(info);
        set(info, value);
        if (VerifyVersionInfoA(&info, type, VerSetConditionMask(0, type, VER_EQUAL)))
            return true;
        error = GetLastError();
        return false;
    });
    if (found < 0)
        win::throw_last_error("Failed to determine operating system version");
    numbers.*field = found;
    return found;
}

OSVERSIONINFOEXA query_version_ex()
{
    OSVERSIONINFOEXA info = {};
    info.dwOSVersionInfoSize = sizeof(info);
    // The product type and suite mask are only had from this deprecated call;
    // the numbers themselves come from RtlGetVersion.
#ifdef _MSC_VER
#pragma warning(suppress : 4996)
#endif
    const BOOL ok = GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&info));
    if (!ok)
        win::throw_last_error("Failed to determine operating system version");
    return info;
}

} // namespace

std::string get_version_string(const std::wstring& module_path)
{
    try {
        std::vector<BYTE> info = load_version_info(module_path);
        VS_FIXEDFILEINFO* fixed = nullptr;
        UINT length = 0;
        if (!VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) ||
            fixed == nullptr)
            win::throw_last_error("Module version cannot be extracted from the version resource.");
        return int_to_str(static_cast<uint32_t>(HIWORD(fixed->dwFileVersionMS))) + "." +
               int_to_str(static_cast<uint32_t>(LOWORD(fixed->dwFileVersionMS))) + "." +
               int_to_str(static_cast<uint32_t>(HIWORD(fixed->dwFileVersionLS))) + "." +
               int_to_str(static_cast<uint32_t>(LOWORD(fixed->dwFileVersionLS)));
    } catch (const std::exception& e) {
        rethrow_for_module(module_path, e);
    }
}

std::string get_comments(const std::wstring& module_path)
{
    try {
        std::vector<BYTE> info = load_version_info(module_path);
        wchar_t* text = nullptr;
        UINT length = 0;
        if (!VerQueryValueW(info.data(), L"\\StringFileInfo\\040904B0\\Comments",
                            reinterpret_cast<void**>(&text), &length) ||
            text == nullptr || length == 0)
            return std::string();
        return wide_to_utf8(std::wstring(text, length).c_str());
    } catch (const std::exception& e) {
        rethrow_for_module(module_path, e);
    }
}

int32_t search_version_value(int32_t limit,
                             const std::function<bool(DWORD value, DWORD& error)>& test)
{
    for (int32_t value = 0; value < limit; ++value) {
        DWORD error = 0;
        if (test(static_cast<DWORD>(value), error))
            return value;
        if (error != 0 && error != ERROR_OLD_WIN_VERSION)
            return -1;
    }
    return -1;
}

int32_t get_os_major()
{
    return os_number(&os_numbers_t::major, VER_MAJORVERSION, 100,
                     [](OSVERSIONINFOEXA& info, DWORD value) { info.dwMajorVersion = value; });
}

int32_t get_os_minor()
{
    return os_number(&os_numbers_t::minor, VER_MINORVERSION, 100,
                     [](OSVERSIONINFOEXA& info, DWORD value) { info.dwMinorVersion = value; });
}

int32_t get_os_build()
{
    return os_number(&os_numbers_t::build, VER_BUILDNUMBER, 100000,
                     [](OSVERSIONINFOEXA& info, DWORD value) { info.dwBuildNumber = value; });
}

int32_t get_os_sp_major()
{
    return os_number(&os_numbers_t::sp_major, VER_SERVICEPACKMAJOR, 100,
                     [](OSVERSIONINFOEXA& info, DWORD value) {
                         info.wServicePackMajor = static_cast<WORD>(value);
                     });
}

int32_t get_os_sp_minor()
{
    return os_number(&os_numbers_t::sp_minor, VER_SERVICEPACKMINOR, 100,
                     [](OSVERSIONINFOEXA& info, DWORD value) {
                         info.wServicePackMinor = static_cast<WORD>(value);
                     });
}

std::string os_version_name(const os_traits_t& traits)
{
    const bool workstation = traits.product_type == VER_NT_WORKSTATION;
    if (traits.major == 5) {
        if (traits.minor == 0)
            return "Windows 2000";
        if (traits.minor == 1)
            return "Windows XP";
        if (traits.minor == 2) {
            if (workstation && traits.processor_architecture == PROCESSOR_ARCHITECTURE_AMD64)
                return "Windows XP Professional x64 Edition";
            if ((traits.suite_mask & VER_SUITE_WH_SERVER) != 0)
                return "Windows Home Server";
            if (traits.server_r2)
                return "Windows Server 2003 R2";
            return "Windows Server 2003";
        }
    }
    if (traits.major == 6) {
        switch (traits.minor) {
        case 0:
            return workstation ? "Windows Vista" : "Windows Server 2008";
        case 1:
            return workstation ? "Windows 7" : "Windows Server 2008 R2";
        case 2:
            return workstation ? "Windows 8" : "Windows Server 2012";
        case 3:
            return workstation ? "Windows 8.1" : "Windows Server 2012 R2";
        case 4:
            return workstation ? "Windows 10" : "Windows Server 2016";
        default:
            break;
        }
    }
    if (traits.major == 10 && traits.minor == 0)
        return workstation ? "Windows 10" : "Windows Server 2016";
    return "Unknown Windows " + int_to_str(traits.major) + "." + int_to_str(traits.minor);
}

std::string os_version_text(const std::string& name, int32_t major, int32_t minor, int32_t build,
                            int32_t sp_major, int32_t sp_minor)
{
    std::string text = name + " (" + int_to_str(major) + "." + int_to_str(minor) + "." +
                       int_to_str(build) + ")";
    if (sp_major > 0 || sp_minor > 0) {
        text += " Service Pack " + int_to_str(sp_major);
        if (sp_minor > 0)
            text += "." + int_to_str(sp_minor);
    }
    return text;
}

std::string get_os_version_name()
{
    const OSVERSIONINFOEXA info = query_version_ex();
    SYSTEM_INFO system = {};
    GetNativeSystemInfo(&system);
    os_traits_t traits;
    traits.major = get_os_major();
    traits.minor = get_os_minor();
    traits.product_type = info.wProductType;
    traits.suite_mask = info.wSuiteMask;
    traits.processor_architecture = system.wProcessorArchitecture;
    traits.server_r2 = GetSystemMetrics(SM_SERVERR2) != 0;
    return os_version_name(traits);
}

std::string get_os_version_text()
{
    return os_version_text(get_os_version_name(), get_os_major(), get_os_minor(), get_os_build(),
                           get_os_sp_major(), get_os_sp_minor());
}

} // namespace util
