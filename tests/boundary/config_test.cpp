#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>

#include <string>

#include "boundary/oracle_config.h"
#include "support/capturing_receiver.h"
#include "support/registry_sandbox.h"

using specific::oracle::COracleConfig;
using testing_support::log_capture_t;

namespace {

const wchar_t* const agent_key = L"SOFTWARE\\Brelm\\Brelm Safeguard";

std::wstring common_app_data()
{
    wchar_t folder[MAX_PATH + 1] = {};
    EXPECT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder));
    return folder;
}

} // namespace

TEST(oracle_config, without_the_agent_key_holds_the_defaults_silently)
{
    test::registry_sandbox_t registry;
    log_capture_t capture;
    const COracleConfig config;
    EXPECT_EQ(300, config.connectionTimeoutSec);
    EXPECT_EQ(45, config.restoreWaitInSec);
    EXPECT_EQ(600, config.agentTtlSec);
    EXPECT_EQ(30, config.waitDbStartedAttemptCount);
    EXPECT_EQ(common_app_data() + L"\\Brelm\\Backup\\OracleLogBackup\\", config.tempLogPath);
    EXPECT_FALSE(config.checkAsmLogFileExistence);
    EXPECT_FALSE(config.supportOracle10);
    EXPECT_FALSE(config.useAutostartOption);
    EXPECT_FALSE(config.disableOracleProcessing);
    EXPECT_FALSE(config.stageLogsBeforeBackup);
    EXPECT_FALSE(config.skipNoArchiveLogDb);
    EXPECT_TRUE(config.detectAsmInstancesByQuery);
    EXPECT_TRUE(config.deleteAbsentLogFiles);
    EXPECT_TRUE(capture.receiver->blocks.empty());
}

TEST(oracle_config, registry_values_overlay_the_defaults_as_stored)
{
    test::registry_sandbox_t registry;
    registry.set_dword(agent_key, L"OracleConnectionTimeout", 0xFFFFFFFFu);
    registry.set_dword(agent_key, L"OracleRestoreWaitInSec", 0);
    registry.set_dword(agent_key, L"OracleAgentTtlSec", 7);
    registry.set_dword(agent_key, L"OracleWaitDbStartedAttemptCount", 3);
    registry.set_string(agent_key, L"OracleTempLogPath", L"D:\\oracle logs");
    registry.set_dword(agent_key, L"CheckAsmLogFileExistence", 2);
    registry.set_dword(agent_key, L"SupportOracle10", 1);
    registry.set_dword(agent_key, L"OracleStageLogsBeforeBackup", 1);
    registry.set_dword(agent_key, L"DeleteOracleAbsentLogFiles", 0);
    registry.set_dword(agent_key, L"DisableOracleProcessing", 1);
    registry.set_dword(agent_key, L"UseOracleAutostartOption", 1);
    registry.set_dword(agent_key, L"OracleSkipNoArchiveLogDB", 1);
    registry.set_dword(agent_key, L"DetectAsmInstancesByQuery", 0);
    const COracleConfig config;
    EXPECT_EQ(-1, config.connectionTimeoutSec);
    EXPECT_EQ(0, config.restoreWaitInSec);
    EXPECT_EQ(7, config.agentTtlSec);
    EXPECT_EQ(3, config.waitDbStartedAttemptCount);
    EXPECT_EQ(L"D:\\oracle logs", config.tempLogPath);
    EXPECT_TRUE(config.checkAsmLogFileExistence);
    EXPECT_TRUE(config.supportOracle10);
    EXPECT_TRUE(config.stageLogsBeforeBackup);
    EXPECT_FALSE(config.deleteAbsentLogFiles);
    EXPECT_TRUE(config.disableOracleProcessing);
    EXPECT_TRUE(config.useAutostartOption);
    EXPECT_TRUE(config.skipNoArchiveLogDb);
    EXPECT_TRUE(config.detectAsmInstancesByQuery);
}

TEST(oracle_config, values_of_another_type_keep_their_default_and_the_rest_is_read)
{
    test::registry_sandbox_t registry;
    registry.set_string(agent_key, L"OracleConnectionTimeout", L"60");
    registry.set_dword(agent_key, L"OracleTempLogPath", 5);
    registry.set_binary(agent_key, L"SupportOracle10", std::string("\x01\x00\x00\x00", 4));
    registry.set_qword(agent_key, L"DeleteOracleAbsentLogFiles", 0);
    registry.set_dword(agent_key, L"OracleSkipNoArchiveLogDB", 1);
    registry.set_string(agent_key, L"OracleRestoreWaitInSec", L"");
    registry.set_dword(agent_key, L"OracleAgentTtlSec", 9);
    log_capture_t capture;
    const COracleConfig config;
    EXPECT_EQ(300, config.connectionTimeoutSec);
    EXPECT_EQ(45, config.restoreWaitInSec);
    EXPECT_EQ(9, config.agentTtlSec);
    EXPECT_EQ(common_app_data() + L"\\Brelm\\Backup\\OracleLogBackup\\", config.tempLogPath);
    EXPECT_FALSE(config.supportOracle10);
    EXPECT_TRUE(config.deleteAbsentLogFiles);
    EXPECT_TRUE(config.skipNoArchiveLogDb);
    EXPECT_TRUE(capture.receiver->blocks.empty());
}
