#include "oracle/inventory/oracle_homes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/failure_lines.h"
#include "support/process.h"
#include "support/registry_sandbox.h"

namespace {

using specific::oracle::COracleHomes;
using specific::oracle::SOracleSid;

const std::wstring kHome = L"C:\\app\\oracle\\product\\19.0.0\\dbhome_1";
const std::wstring kHomeKey = L"SOFTWARE\\ORACLE\\KEY_OraDB19Home1";
const std::wstring kServices = L"SYSTEM\\CurrentControlSet\\Services\\";

class OracleHomesTest : public ::testing::Test {
protected:
    void AddHome(const std::wstring& key, const std::wstring& path, const std::wstring& name)
    {
        sandbox.set_string(key, L"ORACLE_HOME", path);
        sandbox.set_string(key, L"ORACLE_HOME_NAME", name);
        sandbox.set_string(key, L"RDBMS_CONTROL", path + L"\\DATABASE");
    }

    void AddService(const std::wstring& key, const std::wstring& imagePath)
    {
        sandbox.set_string(kServices + key, L"ImagePath", imagePath, REG_EXPAND_SZ);
    }

    std::vector<SOracleSid> Find(const std::vector<std::wstring>& excludes = {},
                                 bool useAutostartOption = false)
    {
        return COracleHomes(excludes, useAutostartOption).Sids();
    }

    std::vector<std::wstring> SidsOf(const std::vector<SOracleSid>& found)
    {
        std::vector<std::wstring> sids;
        for (const SOracleSid& sid : found)
            sids.push_back(sid.sid);
        return sids;
    }

    test::registry_sandbox_t sandbox;
};

TEST_F(OracleHomesTest, ServicesRunningTheHomesExecutableAreItsInstancesNamedByTheirImagePaths)
{
    EXPECT_TRUE(Find().empty()) << "no Oracle software";
    AddHome(kHomeKey, kHome, L"OraDB19Home1");
    AddService(L"OracleASMService+ASM", kHome + L"\\bin\\oracle.exe +asm");
    AddService(L"OracleOraDB19Home1TNSListener", kHome + L"\\bin\\TNSLSNR.EXE");
    AddService(L"OracleServiceOTHERNAME", kHome + L"\\bin\\ORACLE.EXE orcl");
    AddService(L"OracleServiceTEST", kHome + L"\\bin\\oracle.exe TEST");
    test::log_capture_t capture;

    const std::vector<SOracleSid> found = Find({L"TES", L"tEST"});

    EXPECT_EQ(SidsOf(found), (std::vector<std::wstring>{L"+asm", L"orcl"}));
    ASSERT_EQ(found.size(), 2u);
    EXPECT_TRUE(found[0].isAsm);
    EXPECT_FALSE(found[1].isAsm);
    EXPECT_EQ(found[1].homePath, kHome);
    EXPECT_EQ(found[1].homeName, L"OraDB19Home1");
    EXPECT_TRUE(found[1].isAutostart);
    EXPECT_TRUE(test::has_line_ending_with(capture.texts(), "Found oracle instance: orcl. Is ASM: false, is autostart: true"));
    EXPECT_TRUE(test::has_line_ending_with(capture.texts(), "Database with sid [TEST] excluded from processing"));
}

TEST_F(OracleHomesTest, InstancesFollowHomeOrderThenServiceOrderAndRepeatForADuplicatedHome)
{
    const std::wstring other = L"D:\\oracle\\db2";
    AddHome(L"SOFTWARE\\ORACLE\\KEY_A", other, L"A");
    AddHome(L"SOFTWARE\\ORACLE\\key_B", kHome, L"B");
    AddHome(L"SOFTWARE\\ORACLE\\KEY_C", other, L"C");
    AddService(L"OracleServiceDB1", L"c:\\APP\\Oracle\\PRODUCT\\19.0.0\\DBHOME_1\\Bin\\Oracle.Exe DB1");
    AddService(L"OracleServiceDB2", other + L"\\BIN\\ORACLE.EXE DB2");
    AddService(L"oracleserviceDB3", other + L"\\BIN\\ORACLE.EXE DB3");

    const std::vector<SOracleSid> found = Find();

    EXPECT_EQ(SidsOf(found), (std::vector<std::wstring>{L"DB2", L"DB3", L"DB1", L"DB2", L"DB3"}));
    ASSERT_EQ(found.size(), 5u);
    EXPECT_EQ(found[0].homeName, L"A");
    EXPECT_EQ(found[2].homeName, L"B");
    EXPECT_EQ(found[4].homeName, L"C");
}

TEST_F(OracleHomesTest, ImagePathsAreCutAtTheirFirstBlankAndComparedLiterally)
{
    // A blank in the home cuts the image path; quotes stay; a trailing
    // backslash doubles; an expandable home path is not expanded. An image
    // path without a blank is also the SID; the rest after the first blank is.
    const std::wstring blank = L"C:\\Program Files\\Oracle\\db";
    AddHome(L"SOFTWARE\\ORACLE\\KEY_Blank", blank, L"Blank");
    AddService(L"OracleServiceBLANK", blank + L"\\bin\\oracle.exe BLANK");
    const std::wstring quoted = L"C:\\oracle\\quoted";
    AddHome(L"SOFTWARE\\ORACLE\\KEY_Quoted", quoted, L"Quoted");
    AddService(L"OracleServiceQUOTED", L"\"" + quoted + L"\\bin\\oracle.exe\" QUOTED");
    const std::wstring slash = L"C:\\oracle\\slash\\";
    AddHome(L"SOFTWARE\\ORACLE\\KEY_Slash", slash, L"Slash");
    AddService(L"OracleServiceSLASH", slash + L"bin\\oracle.exe SLASH");
    sandbox.set_string(L"SOFTWARE\\ORACLE\\KEY_Expand", L"ORACLE_HOME", L"%SystemDrive%\\ora", REG_EXPAND_SZ);
    AddService(L"OracleServiceEXPANDED", L"C:\\ora\\bin\\oracle.exe EXPANDED");
    AddService(L"OracleServiceVERBATIM", L"%SYSTEMDRIVE%\\ORA\\bin\\oracle.exe VERBATIM");
    AddHome(kHomeKey, kHome, L"OraDB19Home1");
    AddService(L"OracleServiceNOARG", kHome + L"\\bin\\oracle.exe");
    AddService(L"OracleServiceTWO", kHome + L"\\bin\\oracle.exe TWO  WORDS");

    EXPECT_EQ(SidsOf(Find()),
              (std::vector<std::wstring>{L"VERBATIM", kHome + L"\\bin\\oracle.exe", L"TWO  WORDS"}));
}

TEST_F(OracleHomesTest, ValuesThatDontFitOrAreMalformedReadAsEmptyAndTheHomeStays)
{
    // ORACLE_HOME of 260 characters does not fit; the home still pairs, with
    // an empty path, with "\BIN\ORACLE.EXE".
    const std::wstring longKey = L"SOFTWARE\\ORACLE\\KEY_Long";
    sandbox.set_string(longKey, L"ORACLE_HOME", std::wstring(260, L'x'));
    sandbox.set_string(longKey, L"ORACLE_HOME_NAME", std::wstring(259, L'n'));
    AddService(L"OracleServiceROOT", L"\\bin\\oracle.exe ROOT");
    // A name of the wrong type, and one of an odd byte length: whole
    // characters up to a terminator and one stray byte behind them.
    AddHome(kHomeKey, kHome, L"OraDB19Home1");
    sandbox.set_dword(kHomeKey, L"RDBMS_CONTROL", 7);
    const std::wstring odd(L"Odd\0\0", 5);
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kHomeKey.c_str(), 0, KEY_SET_VALUE, &key), 0);
    ASSERT_EQ(RegSetValueExW(key, L"ORACLE_HOME_NAME", 0, REG_SZ, reinterpret_cast<const BYTE*>(odd.data()),
                             static_cast<DWORD>(odd.size() * sizeof(wchar_t) - 1)),
              0);
    RegCloseKey(key);
    AddService(L"OracleServiceORCL", kHome + L"\\bin\\oracle.exe ORCL");

    const std::vector<SOracleSid> found = Find();

    ASSERT_EQ(found.size(), 2u);
    const SOracleSid& root = found[0].sid == L"ROOT" ? found[0] : found[1];
    const SOracleSid& orcl = found[0].sid == L"ROOT" ? found[1] : found[0];
    EXPECT_EQ(root.homePath, L"");
    EXPECT_EQ(root.homeName, std::wstring(259, L'n'));
    EXPECT_EQ(orcl.homePath, kHome);
    EXPECT_EQ(orcl.homeName, L"");
}

TEST_F(OracleHomesTest, OraSidAutostartStringOfTheHomeDecidesForAllItsInstancesWithZeroAsFalse)
{
    AddHome(kHomeKey, kHome, L"OraDB19Home1");
    AddService(L"OracleServiceORCL", kHome + L"\\bin\\oracle.exe ORCL");
    AddService(L"OracleServiceTEST", kHome + L"\\bin\\oracle.exe TEST");
    // Not of the shape: another type, a suffix, a prefix.
    sandbox.set_dword(kHomeKey, L"ORA_A_AUTOSTART", 0);
    sandbox.set_string(kHomeKey, L"ORA_B_AUTOSTART_OLD", L"false");
    sandbox.set_string(kHomeKey, L"ORA_C_AUTOSTART_X_AUTOSTART", L"false");
    sandbox.set_string(kHomeKey, L"XORA_D_AUTOSTART", L"false");
    const std::vector<std::pair<std::wstring, bool>> cases = {
        {L"FALSE", false}, {L"False", false}, {L"0", false}, {L"TRUE", true},
        {L"no", true},     {L"", true},       {L"1", true},
    };
    for (const auto& [text, autostart] : cases) {
        sandbox.set_string(kHomeKey, L"ora_unrelated_autostart", text);
        const std::vector<SOracleSid> found = Find({}, true);
        ASSERT_EQ(found.size(), 2u);
        EXPECT_EQ(found[0].isAutostart, autostart) << "value \"" << util::wide_to_utf8(text) << "\"";
        EXPECT_EQ(found[1].isAutostart, autostart) << "value \"" << util::wide_to_utf8(text) << "\"";
    }
    EXPECT_TRUE(Find({}, false)[0].isAutostart) << "the option is off";
}

TEST_F(OracleHomesTest, SubkeyNameLongerThanTheBufferFailsTheWholeDiscovery)
{
    AddHome(kHomeKey, kHome, L"OraDB19Home1");
    AddService(L"OracleServiceORCL", kHome + L"\\bin\\oracle.exe ORCL");
    sandbox.create_key(kServices + std::wstring(255, L'S'));

    const std::vector<std::string> lines = test::failure_lines([&] { Find(); });
    ASSERT_GE(lines.size(), 4u);
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end() - 3, [](const std::string& line) {
        return line.find("Failed to enum oracle home reg key") != std::string::npos;
    }));
    EXPECT_EQ(std::vector<std::string>(lines.end() - 3, lines.end()),
              (std::vector<std::string>{"COracleHomes: failed to enum reg subkeys.",
                                        "COracleHomes: failed to find oracle services.",
                                        "Failed to create oracle homes."}));
}

} // namespace
