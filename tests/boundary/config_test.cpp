#include <gtest/gtest.h>

#include <windows.h>
#include <shlobj.h>

#include <string>

#include "boundary/oracle_config.h"
#include "support/capturing_receiver.h"
#include "support/registry_sandbox.h"

using specific::oracle::COracleConfig;

namespace {

// Every value read from the registry shows in the configuration dump, checked
// line for line by the end-to-end run of the library; here: what is left when
// the key or a value of the right type is missing.
TEST(OracleConfig, MissingKeyOrValuesOfAnotherTypeKeepTheDefaultsSilently)
{
    wchar_t folder[MAX_PATH + 1] = {};
    ASSERT_EQ(S_OK, SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, 0, folder));
    const std::wstring default_temp = std::wstring(folder) + L"\\Brelm\\Backup\\OracleLogBackup\\";
    test::registry_sandbox_t registry;
    test::log_capture_t capture;
    {
        const COracleConfig config;
        EXPECT_EQ(300, config.connectionTimeoutSec);
        EXPECT_EQ(default_temp, config.tempLogPath);
        EXPECT_FALSE(config.skipNoArchiveLogDb);
        EXPECT_TRUE(config.deleteAbsentLogFiles);
    }
    const wchar_t* const key = L"SOFTWARE\\Brelm\\Brelm Safeguard";
    registry.set_string(key, L"OracleConnectionTimeout", L"60");
    registry.set_dword(key, L"OracleTempLogPath", 5);
    registry.set_binary(key, L"SupportOracle10", std::string("\x01\x00\x00\x00", 4));
    registry.set_qword(key, L"DeleteOracleAbsentLogFiles", 0);
    registry.set_string(key, L"OracleRestoreWaitInSec", L"");
    registry.set_dword(key, L"OracleSkipNoArchiveLogDB", 1);
    registry.set_dword(key, L"OracleAgentTtlSec", 9);
    const COracleConfig config;
    EXPECT_EQ(300, config.connectionTimeoutSec);
    EXPECT_EQ(45, config.restoreWaitInSec);
    EXPECT_EQ(default_temp, config.tempLogPath);
    EXPECT_FALSE(config.supportOracle10);
    EXPECT_TRUE(config.deleteAbsentLogFiles);
    EXPECT_TRUE(config.skipNoArchiveLogDb);
    EXPECT_EQ(9, config.agentTtlSec);
    EXPECT_TRUE(capture.receiver->blocks.empty());
}

} // namespace
