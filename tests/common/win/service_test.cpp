#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "common/exc/exc.h"
#include "common/win/service.h"
#include "support/failure_lines.h"
#include "support/service_sandbox.h"

namespace {

using test::failure_lines;
using test::failure_text;
using testing::ElementsAre;

// How a running, paused or stopped service reads is checked through the VSS
// writer check; here only the faults.
TEST(Services, MissingNullOrMovedFromServiceFailsWithItsOwnText)
{
    auto scm = std::make_shared<win::win_scm_t>();
    EXPECT_THAT(failure_lines([&] { win::win_svc_t(scm, L"OracleVssWriterNOSUCHSID"); }),
                ElementsAre(exc::get_error_text(ERROR_SERVICE_DOES_NOT_EXIST),
                            "Failed to open service 'OracleVssWriterNOSUCHSID'. ",
                            "Error code: 0x00000424"));
    EXPECT_EQ("Failed to open service ''. ", failure_lines([&] { win::win_svc_t(scm, L""); }).at(1));
    EXPECT_EQ("Bad argument: pszServiceName", failure_text([&] { win::win_svc_t(scm, nullptr); }));

    test::test_service_t temporary(L"OrasnapTestSvcMoved" + std::to_wstring(GetCurrentProcessId()));
    win::win_svc_t first(scm, temporary.name().c_str());
    win::win_svc_t second(std::move(first));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), second.query_state());
    EXPECT_EQ("Bad state: service not opened or created", failure_text([&] { first.query_state(); }));
}

} // namespace
