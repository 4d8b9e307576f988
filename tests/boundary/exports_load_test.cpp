#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

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
