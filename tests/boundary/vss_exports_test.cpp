// The VSS verdict as the agent gets it, through the exported function of the
// built library. The verdict is kept for the life of the library, so each test
// loads a copy of orasnap.dll of its own: a copy under another name is another
// module, with singletons of its own.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "sim_machine.h"
#include "support/service_sandbox.h"
#include "support/temp_folder.h"

namespace {

using inventory_test::CSimMachine;

std::wstring ExeFolder()
{
    wchar_t module[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, module, MAX_PATH);
    const std::wstring path(module, length);
    return path.substr(0, path.find_last_of(L'\\') + 1);
}

class CLibraryCopy {
public:
    CLibraryCopy() : path_(folder_.file(L"orasnap_copy.dll"))
    {
        if (!CopyFileW((ExeFolder() + L"orasnap.dll").c_str(), path_.c_str(), FALSE))
            throw std::runtime_error("cannot copy orasnap.dll");
        module_ = LoadLibraryW(path_.c_str());
        if (module_ == nullptr)
            throw std::runtime_error("cannot load the copy of orasnap.dll");
    }
    ~CLibraryCopy() { FreeLibrary(module_); }
    CLibraryCopy(const CLibraryCopy&) = delete;
    CLibraryCopy& operator=(const CLibraryCopy&) = delete;

    HRESULT CheckVssFunctionality(bool& functional, std::wstring& error) const
    {
        using Fn = HRESULT (*)(bool*, wchar_t**);
        using StrFree = void (*)(wchar_t*);
        // Through void(*)(): the one function pointer type a FARPROC converts to cleanly.
        const auto check = reinterpret_cast<Fn>(reinterpret_cast<void (*)()>(
            GetProcAddress(module_, "OracleCheckVssFunctionality")));
        const auto strFree = reinterpret_cast<StrFree>(
            reinterpret_cast<void (*)()>(GetProcAddress(module_, "OracleLibStrFree")));
        wchar_t* text = nullptr;
        const HRESULT result = check(&functional, &text);
        if (text != nullptr) {
            error = text;
            strFree(text);
        }
        return result;
    }

private:
    test::temp_folder_t folder_;
    std::wstring path_;
    HMODULE module_ = nullptr;
};

// Each verdict comes from a copy of the library of its own, as the verdict is
// kept for the life of the library.
bool Verdict()
{
    bool functional = false;
    std::wstring error;
    EXPECT_EQ(CLibraryCopy().CheckVssFunctionality(functional, error), S_OK) << error.c_str();
    return functional;
}

TEST(VssThroughTheExport, HangingDatabaseDisablesVssOnlyWhileItsWriterRunsAndTheVerdictIsKept)
{
    CSimMachine machine;
    machine.Registry().set_dword(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleConnectionTimeout", 1);
    const std::wstring wide = test::unique_sid(L"X");
    const std::string sid(wide.begin(), wide.end());
    machine.AddInstance(sid, "fault = kind=hang | at=session_begin");
    machine.AddInstance(sid + "S", "fault = kind=hang | at=status");
    test::test_service_t writer(L"OracleVssWriter" + wide);
    EXPECT_TRUE(Verdict()) << "the writer is stopped; the other database has none";

    writer.start();
    CLibraryCopy library;
    bool functional = true;
    std::wstring error;
    EXPECT_EQ(library.CheckVssFunctionality(functional, error), S_OK) << error.c_str();
    EXPECT_FALSE(functional);
    writer.stop();
    functional = true;
    EXPECT_EQ(library.CheckVssFunctionality(functional, error), S_OK) << error.c_str();
    EXPECT_FALSE(functional) << "the verdict is kept";
}

} // namespace
