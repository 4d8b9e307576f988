#include "boundary/oracle_manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/capturing_receiver.h"
#include "support/failure_lines.h"

using specific::oracle::COracleManager;
using specific::oracle::SOracleCredentials;

namespace {

using test::failure_text;

const SOracleCredentials kNoCredentials;

} // namespace

TEST(OracleManager, FailureGainsTheOperationLineAndTheLogScopeEndsFailed)
{
    testing_support::log_capture_t capture;
    EXPECT_EQ(failure_text([] {
                  COracleManager::Instance().ExploreInstances(true, kNoCredentials, L"");
              }),
              "Exploring Oracle instances is not built yet.\n"
              "--tr:Oracle manager failed to explore Oracle instances");
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"oralib| Exploring oracle instances",
                                                         "oralib| Exploring oracle instances Failed."}));
}

TEST(OracleManager, DeletionBySizeReportsTheLineOfDeletionByTime)
{
    testing_support::log_capture_t capture;
    const std::string text = failure_text([] {
        COracleManager::Instance().DeleteLogsBySize(L"C:\\ora", L"ORCL", 1024, kNoCredentials);
    });
    EXPECT_EQ(text.substr(text.find('\n') + 1),
              "--tr:Oracle manager failed to delete archived logs by time");
    ASSERT_FALSE(capture.texts().empty());
    EXPECT_EQ(capture.texts().front(), "oralib| Deleting oracle logs by size. Sid: ORCL");
}

TEST(OracleManager, EmptyListOfEnabledWritersIsValidInput)
{
    EXPECT_EQ(failure_text([] {
                  COracleManager::Instance().PrepareDbsForBackup(L"", L"<broken", kNoCredentials,
                                                                 L"", L"");
              }),
              "Preparing databases for backup is not built yet.\n"
              "--tr:Oracle manager failed to prepare dbs for backup");
}
