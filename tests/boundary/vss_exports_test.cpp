// The VSS verdict as the agent gets it, through the exported function of the
// built library. The verdict is kept for the life of the library, so each test
// loads a copy of orasnap.dll of its own: a copy under another name is another
// module, with singletons of its own.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "support/orasnap_library.h"
#include "support/service_sandbox.h"
#include "support/sim_machine.h"

namespace {

// The byte a private copy of the library, or the given one, writes as its verdict:
// 1 or 0, and 0x5A when it writes none.
int Verdict(const test::library_t& library = test::library_t(true))
{
    unsigned char functional = 0x5A;
    wchar_t* error = nullptr;
    EXPECT_EQ(ORASNAP_EXPORT(library, OracleCheckVssFunctionality)(reinterpret_cast<bool*>(&functional), &error),
              S_OK)
        << library.take(error).c_str();
    return functional;
}

TEST(VssThroughTheExport, HangingDatabaseDisablesVssOnlyWhileItsWriterRunsAndTheVerdictIsKept)
{
    test::sim_machine_t machine;
    machine.registry().set_dword(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleConnectionTimeout", 1);
    const std::wstring wide = test::unique_sid(L"X");
    const std::string sid(wide.begin(), wide.end());
    machine.add_instance({sid, {}, {{"fault", {{"kind", "hang"}, {"at", "session_begin"}}}}});
    machine.add_instance({sid + "S", {}, {{"fault", {{"kind", "hang"}, {"at", "status"}}}}});
    test::test_service_t writer(L"OracleVssWriter" + wide);
    EXPECT_EQ(Verdict(), 1) << "the writer is stopped; the other database has none";

    writer.start();
    const test::library_t library(true);
    EXPECT_EQ(Verdict(library), 0);
    writer.stop();
    EXPECT_EQ(Verdict(library), 0) << "the verdict is kept";
}

} // namespace
