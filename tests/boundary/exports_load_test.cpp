#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "version.h"

namespace {

class LoadedLibrary {
public:
    explicit LoadedLibrary(const wchar_t* name) : module_(LoadLibraryW(name)) {}
    ~LoadedLibrary() {
        if (module_ != nullptr) {
            FreeLibrary(module_);
        }
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    HMODULE get() const { return module_; }

private:
    HMODULE module_;
};

const std::vector<std::string>& export_names() {
    static const std::vector<std::string> names = {
        "OracleVssInitLib",       "OracleVssStopLib",          "OracleGatherVssInfo",
        "OracleShouldSkipVssWriter", "OracleCheckVssFunctionality", "OracleLibStrFree",
        "OracleExploreInstances", "OracleBackupLogs",          "OracleEnumLogs",
        "OraclePrepareDbsForBackup", "OracleFinishDbsBackup",  "OracleDeleteLogsByTime",
        "OracleDeleteLogsBySize", "OracleRemoveLogsInTemp",    "OracleIsRestoreRequired",
        "OracleDoRestore",        "OracleGetLogsFolder",       "OracleTest",
    };
    return names;
}

std::wstring widen_ascii(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

std::wstring version_string(const std::vector<BYTE>& block, const wchar_t* name) {
    void* value = nullptr;
    UINT length = 0;
    const std::wstring path = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
    if (!VerQueryValueW(block.data(), path.c_str(), &value, &length) || length == 0) {
        return L"<missing>";
    }
    return static_cast<const wchar_t*>(value);
}

}  // namespace

TEST(LibraryExports, AllEighteenEntryPointsResolveByUndecoratedName) {
    LoadedLibrary library(L"orasnap.dll");
    ASSERT_NE(library.get(), nullptr) << "LoadLibraryW(orasnap.dll) failed, error " << GetLastError();
    for (const std::string& name : export_names()) {
        EXPECT_NE(GetProcAddress(library.get(), name.c_str()), nullptr) << name << " is not exported";
    }
}

TEST(LibraryExports, FreeingANullTextIsHarmless) {
    LoadedLibrary library(L"orasnap.dll");
    ASSERT_NE(library.get(), nullptr);
    using StrFree = void (*)(wchar_t*);
    // Through void(*)(): the one function pointer type a FARPROC converts to without a warning.
    auto strFree = reinterpret_cast<StrFree>(
        reinterpret_cast<void (*)()>(GetProcAddress(library.get(), "OracleLibStrFree")));
    ASSERT_NE(strFree, nullptr);
    strFree(nullptr);
}

TEST(LibraryExports, NothingButTheEighteenEntryPointsIsExported) {
    LoadedLibrary library(L"orasnap.dll");
    ASSERT_NE(library.get(), nullptr);
    const auto* base = reinterpret_cast<const BYTE*>(library.get());
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    ASSERT_NE(dir.VirtualAddress, 0u);
    const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
    const auto* nameRvas = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    std::vector<std::string> exported;
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
        exported.emplace_back(reinterpret_cast<const char*>(base + nameRvas[i]));
    }
    std::vector<std::string> expected = export_names();
    std::sort(expected.begin(), expected.end());
    std::sort(exported.begin(), exported.end());
    EXPECT_EQ(exported, expected);
}

TEST(LibraryExports, VersionResourceCarriesTheBuildVersionAndComments) {
    LoadedLibrary library(L"orasnap.dll");
    ASSERT_NE(library.get(), nullptr);
    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(library.get(), path, MAX_PATH), 0u);
    const DWORD size = GetFileVersionInfoSizeW(path, nullptr);
    ASSERT_NE(size, 0u);
    std::vector<BYTE> block(size);
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, block.data()));

    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT fixedLength = 0;
    ASSERT_TRUE(VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &fixedLength));
    EXPECT_EQ(fixed->dwFileVersionMS, static_cast<DWORD>(MAKELONG(ORASNAP_VERSION_MINOR, ORASNAP_VERSION_MAJOR)));
    EXPECT_EQ(fixed->dwFileVersionLS, static_cast<DWORD>(MAKELONG(ORASNAP_VERSION_TWEAK, ORASNAP_VERSION_PATCH)));
    EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));

    EXPECT_EQ(version_string(block, L"FileVersion"), widen_ascii(ORASNAP_VERSION_TEXT));
    EXPECT_EQ(version_string(block, L"Comments"), widen_ascii(ORASNAP_COMMENTS));
}
