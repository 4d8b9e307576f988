#include <gtest/gtest.h>

#include <stdexcept>

#include "common/exc/exc.h"
#include "common/win/service.h"
#include "support/service_sandbox.h"

namespace {

TEST(Services, StateFollowsTheServiceAsItStartsAndStops)
{
    test::test_service_t service(L"OrasnapTestSvc" + std::to_wstring(GetCurrentProcessId()));
    win::win_svc_t opened(std::make_shared<win::win_scm_t>(), service.name().c_str());
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), opened.query_state());
    service.start();
    EXPECT_EQ(static_cast<DWORD>(SERVICE_RUNNING), opened.query_state());
    service.stop();
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), opened.query_state());
}

// Runs `open`, which must raise a win_sys_exc_t, and returns it.
template <typename Open>
exc::win_sys_exc_t open_failure(Open open)
{
    try {
        open();
    } catch (const exc::win_sys_exc_t& e) {
        return e;
    }
    ADD_FAILURE() << "opened a service that does not exist";
    return exc::win_sys_exc_t(0);
}

TEST(Services, MissingServiceFailsWithItsNameAndCode)
{
    auto scm = std::make_shared<win::win_scm_t>();
    const auto missing = open_failure([&] { win::win_svc_t(scm, L"OracleVssWriterNOSUCHSID"); });
    EXPECT_EQ(static_cast<uint32_t>(ERROR_SERVICE_DOES_NOT_EXIST), missing.code());
    ASSERT_EQ(3u, missing.lines().size());
    EXPECT_EQ("Failed to open service 'OracleVssWriterNOSUCHSID'. ", missing.lines()[1].text);
    EXPECT_EQ("Error code: 0x00000424", missing.lines()[2].text);

    const auto empty = open_failure([&] { win::win_svc_t(scm, L""); });
    EXPECT_NE(0u, empty.code());
    ASSERT_EQ(3u, empty.lines().size());
    EXPECT_EQ("Failed to open service ''. ", empty.lines()[1].text);
}

TEST(Services, NullNameAndMovedFromServiceAreRejected)
{
    auto scm = std::make_shared<win::win_scm_t>();
    try {
        win::win_svc_t service(scm, nullptr);
        ADD_FAILURE() << "accepted a null name";
    } catch (const std::exception& e) {
        EXPECT_STREQ("Bad argument: pszServiceName", e.what());
    }

    test::test_service_t temporary(L"OrasnapTestSvcMoved" + std::to_wstring(GetCurrentProcessId()));
    win::win_svc_t first(scm, temporary.name().c_str());
    win::win_svc_t second(std::move(first));
    EXPECT_EQ(static_cast<DWORD>(SERVICE_STOPPED), second.query_state());
    try {
        first.query_state();
        ADD_FAILURE() << "a moved-from service answered";
    } catch (const std::exception& e) {
        EXPECT_STREQ("Bad state: service not opened or created", e.what());
    }
}

} // namespace
