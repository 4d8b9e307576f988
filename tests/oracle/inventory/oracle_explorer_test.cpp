// The inventory as the agent asks for it: OracleExploreInstances of a private
// copy of the library, against a registry and a simulated server that the
// test builds, documents compared whole.
#include "oracle/inventory/oracle_props.h"

#include "oracle/inventory/db_param_files.h"
#include "oracle/inventory/explore_db_config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "common/ctx/module_info.h"
#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/process.h"
#include "support/orasnap_library.h"
#include "support/temp_folder.h"
#include "support/sim_machine.h"

namespace {

using specific::oracle::CExploreDbConfig;
using specific::oracle::RunCommandBounded;
using specific::oracle::TimeZoneQuarterHours;
using test::library_t;
using test::sim_machine_t;
using testing::ElementsAre;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kTcpip[] = L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters";

void WriteFile(const std::wstring& path, const std::string& content)
{
    std::ofstream(path.c_str(), std::ios::binary) << content;
}

std::wstring Fqdn()
{
    DWORD size = 0;
    GetComputerNameExW(ComputerNameDnsFullyQualified, nullptr, &size);
    std::wstring name(size + 1, L'\0');
    GetComputerNameExW(ComputerNameDnsFullyQualified, &name[0], &size);
    name.resize(size);
    return name;
}

std::string TimeZone()
{
    TIME_ZONE_INFORMATION zone{};
    const DWORD result = GetTimeZoneInformation(&zone);
    return std::to_string(TimeZoneQuarterHours(result, zone));
}

// A machine with three homes besides the default one's instances: one holding
// a single ASM instance in a folder with national characters, one whose only
// instance (ASM) fails, one with only a temporary instance.
class CInventoryMachine {
public:
    CInventoryMachine()
        : arch_(machine_.world().folder().file(L"arch")),
          asmHome_(machine_.world().folder().file(L"\u00c1smhom\u00e9"))
    {
        const std::wstring home = machine_.home_path();
        for (const std::wstring& folder : {home, home + L"\\database", home + L"\\bin", arch_, asmHome_})
            CreateDirectoryW(folder.c_str(), nullptr);
        machine_.registry().set_dword(kConfigKey, L"OracleConnectionTimeout", 1);
        // Where the system finds its DNS name; the sandbox hides the machine's own.
        machine_.registry().set_string(kTcpip, L"Hostname", L"dbhost");
        machine_.registry().set_string(kTcpip, L"Domain", L"example.test");
        machine_.registry().set_string(kConfigKey, L"LogDirectory", machine_.world().folder().path());
    }

    sim_machine_t& Machine() { return machine_; }
    const std::wstring& Arch() const { return arch_; }
    const std::wstring& AsmHome() const { return asmHome_; }

    // The document, or the error text; and the HRESULT.
    HRESULT Explore(const library_t& library, bool exploreFlag, const std::wstring& config, std::wstring& text)
    {
        wchar_t* result = test::untouched_text;
        wchar_t* error = test::untouched_text;
        const HRESULT hr =
            ORASNAP_EXPORT(library, OracleExploreInstances)(exploreFlag, L"", L"", config.c_str(), &result, &error);
        text = hr == S_OK ? library.take(result) : library.take(error);
        return hr;
    }

    // Folders, the now of the run, and the machine's facts, as names.
    std::string Mask(const std::wstring& text) const
    {
        std::string masked = util::wide_to_utf8(text);
        masked = test::replace_all(masked, util::wide_to_utf8(arch_), "<ARCH>");
        masked = test::replace_all(masked, util::wide_to_utf8(asmHome_), "<ASMHOME>");
        masked = test::replace_all(masked, util::wide_to_utf8(machine_.home_path()), "<HOME>");
        masked = test::replace_all(masked, util::wide_to_utf8(L"serverName=\"" + Fqdn() + L"\" osName=\"" +
                                                    util::ansi_to_wide(util::get_os_version_text()) +
                                                    L"\" timeZone=\"" + util::utf8_to_wide(TimeZone()) + L"\""),
                         "<ENV>");
        masked = std::regex_replace(masked, std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d"), "<UTC>");
        masked = std::regex_replace(masked, std::regex("C:\\\\ProgramData\\\\Brelm\\\\Backup\\\\Tmp\\\\\\{[-0-9a-f]+\\}"), "<TMP>");
        return std::regex_replace(masked, std::regex("(?!2024)\\d{4}/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d"), "<NOW>");
    }

    // The statements one instance ran and the errors it answered, masked.
    std::vector<std::string> Statements(const std::string& sid)
    {
        std::vector<std::string> lines;
        for (const std::string& line : machine_.world().take_journal())
            if ((line.rfind("sql sid=" + sid + " ", 0) == 0 || line.rfind("error sid=" + sid + " ", 0) == 0))
                lines.push_back(Mask(util::utf8_to_wide(line.substr(line.find(' ', 8) + 1))));
        return lines;
    }

private:
    sim_machine_t machine_;
    std::wstring arch_;
    std::wstring asmHome_;
};

TEST(TimeZoneAttribute, QuarterHoursEastOfUtcTruncatedTowardZero)
{
    TIME_ZONE_INFORMATION zone{};
    const auto quarters = [&zone](DWORD result, LONG bias, LONG standard, LONG daylight) {
        zone.Bias = bias;
        zone.StandardBias = standard;
        zone.DaylightBias = daylight;
        return TimeZoneQuarterHours(result, zone);
    };
    EXPECT_EQ(quarters(TIME_ZONE_ID_UNKNOWN, -60, 5, 5), 4);
    EXPECT_EQ(quarters(TIME_ZONE_ID_STANDARD, 300, 0, -60), -20);
    EXPECT_EQ(quarters(TIME_ZONE_ID_DAYLIGHT, -270, 0, -60), 22);
    EXPECT_EQ(quarters(TIME_ZONE_ID_UNKNOWN, 7, 0, 0), 0);
    EXPECT_EQ(quarters(TIME_ZONE_ID_INVALID, -600, 0, 0), 0);
}

// One explore of a machine with a bit of everything: a 19c container with
// pluggable databases and archived logs (one below the caller's first RECID,
// one missing on disk, two on ASM, one written by LGWR), an 11g database
// without ARCHIVELOG, a 10g one that is skipped, a down one, a hung one, one
// whose pfile step fails, temporary and excluded instances, an ASM home with
// a national name, a home whose only (ASM) instance fails and a home of only
// a temporary instance. Then the same library again without exploreFlag and
// with a broken config, and a fresh copy that asks ASM about its logs.
TEST(ExploreInstances, DescribesEveryHomeAndKeepsEachBadDatabaseToItself)
{
    CInventoryMachine inventory;
    sim_machine_t& machine = inventory.Machine();
    const std::wstring home = machine.home_path();
    const std::string arch = util::wide_to_utf8(inventory.Arch());
    WriteFile(home + L"\\database\\spfileCDB1.ora", "spfile");
    WriteFile(home + L"\\database\\initCDB1.ora", "init");
    WriteFile(home + L"\\database\\initORA11.ora", "init");
    WriteFile(home + L"\\database\\PWDORA11.ora", "pwd");
    WriteFile(inventory.Arch() + L"\\ARC1.ARC", "1");
    WriteFile(inventory.Arch() + L"\\ARC3.ARC", "3");
    // The tool prints the password file, then an empty line that ends the reading.
    WriteFile(home + L"\\bin\\srvctl.bat", "@echo off\r\n"
                                           "echo Database unique name: %4\r\n"
                                           "echo Password file: +DATA/%4/PASSWORD/pwd%4 \r\n"
                                           "echo.\r\n"
                                           "echo Password file: never read\r\n");

    machine.add_instance({"CDB1",
                          {{"cdb", "YES"}, {"domain", "example.com"}, {"archive_dest", arch},
                           {"recovery_dest", "C:\\fra"}, {"current_scn", "7000"}},
                          {{"controlfile", {{"name", "C:\\oradata\\CONTROL01.CTL"}}},
                           {"datafile", {{"name", "C:\\oradata\\SYSTEM01.DBF"}}},
                           {"datafile", {{"name", "C:\\oradata\\<&\"'>\x01.DBF"}, {"bytes", "1"}}},
                           {"tempfile", {{"name", "C:\\oradata\\TEMP01.DBF"}}},
                           {"redolog", {{"group", "1"}, {"member", "C:\\oradata\\REDO01A.LOG"}}},
                           {"redolog", {{"group", "1"}, {"member", "C:\\oradata\\REDO01B.LOG"}}},
                           {"redolog", {{"group", "2"}, {"member", "C:\\oradata\\REDO02.LOG"}}},
                           {"pdb", {{"name", "PDB$SEED"}, {"guid", "A1"}}},
                           {"pdb", {{"name", "SALES"}, {"guid", "B2"}}},
                           {"parameter", {{"name", "local_listener"}, {"value", "LISTENER_CDB1"}}},
                           {"parameter", {{"name", "remote_listener"}, {"value", "scan:1521"}}},
                           {"parameter", {{"name", "cluster_database"}, {"value", "TRUE"}}},
                           {"restore_point", {{"name", "BEFORE_UPGRADE"}}},
                           {"archived_log", {{"name", arch + "\\ARC1.ARC"}, {"recid", "1"}, {"stamp", "1001"},
                                             {"sequence", "1"}, {"first_time", "2024/01/01 00:00:00"}}},
                           {"archived_log", {{"name", arch + "\\ARC2.ARC"}}},
                           {"archived_log", {{"name", arch + "\\ARC3.ARC"}}},
                           {"archived_log", {{"name", "+DATA/CDB1/ARC4.ARC"}}},
                           {"archived_log", {{"name", "+DATA/CDB1/ARC5.ARC"}}},
                           {"archived_log", {{"name", arch + "\\ARC6.ARC"}, {"creator", "LGWR"}}},
                           {"asm_file", {{"name", "+DATA/CDB1/ARC4.ARC"}}}}});
    machine.add_instance({"ORA11",
                          {{"version", "11.2.0.4.0"}, {"banner", "Oracle Database 11g"}, {"log_mode", "NOARCHIVELOG"}},
                          {{"datafile", {{"name", "C:\\oradata\\ORA11.DBF"}}}}});
    machine.add_instance({"DOWN1", {{"status", "DOWN"}}});
    machine.add_instance({"HANG", {}, {{"fault", {{"kind", "hang"}, {"at", "session_begin"}}}}});
    machine.add_instance({"ORA10", {{"version", "10.2.0.5.0"}, {"log_mode", "NOARCHIVELOG"}}});
    machine.add_instance({"PFAIL",
                          {{"spfile", "no"}, {"log_mode", "NOARCHIVELOG"}},
                          {{"fault", {{"kind", "error"}, {"text", "from memory"}, {"code", "1031"}}}}});
    machine.add_instance({"CRASH", {}, {{"fault", {{"kind", "av"}, {"at", "status"}}}}});
    machine.add_instance({"CRASHSQL", {}, {{"fault", {{"kind", "av"}, {"text", "V$TEMPFILE"}}}}});
    machine.add_instance({"SLOW", {}, {{"fault", {{"kind", "hang"}, {"at", "status"}}}}});
    machine.add_instance({"BrelmTmp1"});
    machine.add_instance({"EXCL", {{"version", "11.2.0.4.0"}, {"log_mode", "NOARCHIVELOG"}}});
    machine.add_home(L"\u00c4smHome", inventory.AsmHome());
    machine.add_instance({"+ASM",
                          {{"status", "STARTED"}},
                          {{"asm_disk", {{"path", "\\\\.\\DISK1"}, {"group", "DATA"}}},
                           {"asm_disk", {{"path", "\\\\.\\DISK2"}, {"group", "DATA"}, {"mode_status", "OFFLINE"}}},
                           {"asm_disk", {{"path", "\\\\.\\SPARE"}, {"group", ""}}}}},
                         true, inventory.AsmHome());
    machine.add_home(L"BadHome", L"C:\\bad");
    machine.add_instance({"+ASMBAD", {{"status", "STARTED"}}, {{"fault", {{"kind", "error"}, {"code", "15001"}}}}},
                         true, L"C:\\bad");
    machine.add_home(L"TmpHome", L"C:\\tmphome");
    machine.add_instance({"BrelmTmp2"}, false, L"C:\\tmphome");

    library_t library(true);
    std::wstring document;
    // Keys are exact, and the first of two entries wins.
    const std::wstring config = L"<config><dbrecids>"
                                L"<db sid=\"CDB1\" recId=\"1\" stamp=\"1001\" firstPassRecId=\"2\"/>"
                                L"<db sid=\"CDB1\" recId=\"9\" stamp=\"9\" firstPassRecId=\"9\"/>"
                                L"<db sid=\"cdb1\" recId=\"7\" stamp=\"7\" firstPassRecId=\"7\"/>"
                                L"</dbrecids><excludes><db name=\"excl\"/></excludes></config>";
    ASSERT_EQ(inventory.Explore(library, true, config, document), S_OK) << util::wide_to_utf8(document);

    const std::string pfile = util::base64_encode("*.db_name='CDB1'\n*.local_listener='LISTENER_CDB1'\n"
                                                  "*.remote_listener='scan:1521'\n*.cluster_database=TRUE\n");
    const std::string cdb1Head =
        "        <database isError=\"false\" name=\"CDB1\" id=\"1234567890\" sid=\"CDB1\" "
        "config=\"<HOME>\\database\\spfileCDB1.ora\" lastScn=\"8001\" archiveLogsOn=\"true\" isReadonly=\"false\" "
        "reverted=\"false\" timeUtc=\"<UTC>\" lastLogNum=\"7\" maxLogRecId=\"7\" maxLogStamp=\"1100000006\" pfile=\"";
    const std::string cdb1Tail =
        "\" pwdFilePath=\"+DATA/CDB1/PASSWORD/pwdCDB1\" globalName=\"CDB1.example.com\" recoveryFileDest=\"C:\\fra\" "
        "localListener=\"LISTENER_CDB1\" remoteListener=\"scan:1521\" hasGuaranteedRestorePoints=\"true\" "
        "isCluster=\"true\">\n"
        "            <control_files>\n"
        "                <dbfile path=\"C:\\oradata\\CONTROL01.CTL\" size=\"16777216\" />\n"
        "            </control_files>\n"
        "            <data_files>\n"
        "                <dbfile path=\"C:\\oradata\\SYSTEM01.DBF\" size=\"104857600\" />\n"
        "                <dbfile path='C:\\oradata\\&lt;&amp;&quot;&apos;&gt;\xEF\xBF\xBD.DBF' size=\"1\" />\n"
        "            </data_files>\n"
        "            <log_files>\n"
        "                <dbfile path=\"C:\\oradata\\REDO01A.LOG\" size=\"52428800\" groupNumber=\"1\" />\n"
        "                <dbfile path=\"C:\\oradata\\REDO01B.LOG\" size=\"52428800\" groupNumber=\"1\" />\n"
        "                <dbfile path=\"C:\\oradata\\REDO02.LOG\" size=\"52428800\" groupNumber=\"2\" />\n"
        "            </log_files>\n"
        "            <temp_files>\n"
        "                <dbfile path=\"C:\\oradata\\TEMP01.DBF\" size=\"20971520\" />\n"
        "            </temp_files>\n"
        "            <pdbs>\n"
        "                <db name=\"PDB$SEED\" guid=\"A1\" />\n"
        "                <db name=\"SALES\" guid=\"B2\" />\n"
        "            </pdbs>\n";
    const auto log = [](const std::string& path, int seq, const std::string& to) {
        const std::string n = std::to_string(seq);
        return "                <archived_log path=\"" + path + "\" size=\"1024\" scnFrom=\"" + n + "000\" scnTo=\"" +
               (seq == 7 ? "7001" : std::to_string(seq + 1) + "000") + "\" utcTimeFrom=\"2024/01/01 0" +
               std::to_string(seq - 1) + ":00:00\" utcTimeTo=\"" + to + "\" seqNum=\"" + n + "\" />\n";
    };
    const std::string ora11 =
        "        <database isError=\"false\" name=\"ORA11\" id=\"1234567890\" sid=\"ORA11\" "
        "config=\"<HOME>\\database\\initORA11.ora\" lastScn=\"1000000\" archiveLogsOn=\"false\" isReadonly=\"false\" "
        "reverted=\"false\" timeUtc=\"<UTC>\" lastLogNum=\"\" maxLogRecId=\"\" maxLogStamp=\"\" pfile=\"" +
        util::base64_encode("*.db_name='ORA11'\n") +
        "\" pwdFilePath=\"<HOME>\\database\\PWDORA11.ora\" globalName=\"ORA11\" recoveryFileDest=\"\" "
        "localListener=\"\" remoteListener=\"\" hasGuaranteedRestorePoints=\"false\" isCluster=\"false\">\n"
        "            <control_files />\n"
        "            <data_files>\n"
        "                <dbfile path=\"C:\\oradata\\ORA11.DBF\" size=\"104857600\" />\n"
        "            </data_files>\n"
        "            <log_files />\n"
        "            <temp_files />\n"
        "            <pdbs />\n"
        "            <archived_logs />\n"
        "        </database>\n";
    const std::string probe = "&#x0A;--tr:Checking if oracle instance is open thread failed.&#x0A;--tr:OracleSession: "
                              "failed to check if instance is open.\" />\n";
    const std::string crashes =
        "        <database isError=\"true\" sid=\"CRASH\" config=\"\" errorDescription=\"SEH exception has occurred "
        "while checking oracle status, exception code: 0xc0000005" + probe +
        "        <database isError=\"true\" sid=\"CRASHSQL\" config=\"\" errorDescription=\"SEH exception has "
        "occurred while collecting database properties, exception code: 0xc0000005\" />\n";
    const std::string slow = "        <database isError=\"true\" sid=\"SLOW\" config=\"\" errorDescription=\"Failed to "
                             "wait checking if oracle instance is opened" + probe;
    const std::string failures =
        "        <database isError=\"true\" sid=\"DOWN1\" config=\"\" errorDescription=\"Oracle database instance "
        "state is not valid for property collection\" />\n"
        "        <database isError=\"true\" sid=\"HANG\" config=\"\" errorDescription=\"Failed to wait oracle session "
        "initialization&#x0A;--tr:Failed to create oracle session holder. SID: HANG.\" />\n";
    const std::string pfail =
        "        <database isError=\"true\" sid=\"PFAIL\" config=\"\" errorDescription=\"Oracle error has occurred. "
        "ORA-01031: insufficient privileges&#x0A;&#x0A;--tr:Failed to exec query [create pfile=&apos;<TMP>&apos; "
        "from memory].&#x0A;--tr:Failed to get pfile content&#x0A;--tr:Failed to gather database properties.\" />\n";
    const std::string asmHome =
        "    <home name=\"TmpHome\" version=\"\" path=\"\" desc=\"\" />\n"
        "    <home name=\"\xC3\x84smHome\" version=\"19.0.0.0.0\" path=\"<ASMHOME>\" desc=\"ORACLE DATABASE 19C "
        "ENTERPRISE EDITION RELEASE 19.0.0.0.0 - PRODUCTION\">\n"
        "        <asm sid=\"+ASM\">\n"
        "            <disk name=\"DATA\" path=\"\\\\.\\DISK1\" state=\"ONLINE\" />\n"
        "            <disk name=\"DATA\" path=\"\\\\.\\DISK2\" state=\"OFFLINE\" />\n"
        "        </asm>\n"
        "    </home>\n"
        "</OracleOverall>\n";
    const std::string homeHead = "<OracleOverall <ENV>>\n"
                                 "    <home name=\"SimHome1\" version=\"19.0.0.0.0\" path=\"<HOME>\" desc=\"ORACLE "
                                 "DATABASE 19C ENTERPRISE EDITION RELEASE 19.0.0.0.0 - PRODUCTION\">\n";
    EXPECT_EQ(inventory.Mask(document),
              homeHead + cdb1Head + pfile + cdb1Tail + "            <archived_logs>\n" +
                  log("<ARCH>\\ARC3.ARC", 3, "2024/01/01 03:00:00") +
                  log("+DATA/CDB1/ARC4.ARC", 4, "2024/01/01 04:00:00") +
                  log("+DATA/CDB1/ARC5.ARC", 5, "2024/01/01 05:00:00") +
                  log("<ARCH>\\ARC0000000007_0001.ARC", 7, "<NOW>") + "            </archived_logs>\n" +
                  "        </database>\n" + crashes + failures + ora11 + pfail + slow + "    </home>\n" + asmHome);
    // The collector's statements in their order; the filter is in the listing itself.
    EXPECT_THAT(
        inventory.Statements("CDB1"),
        ElementsAre("text=SELECT STATUS FROM V$INSTANCE", "text=SELECT DATABASE_STATUS FROM V$INSTANCE",
                    "text=SELECT VERSION FROM V$INSTANCE", "text=SELECT NAME FROM V$DATABASE",
                    "text=SELECT version FROM V$INSTANCE",
                    "text=SELECT * FROM V$VERSION WHERE BANNER LIKE 'Oracle%'",
                    "text=SELECT SYS_CONTEXT('USERENV','DB_NAME') FROM DUAL",
                    "text=SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE",
                    "text=SELECT F.MEMBER, L.BYTES FROM V$LOG L, V$LOGFILE F WHERE L.GROUP# = F.GROUP#",
                    "text=SELECT NAME, BYTES FROM V$DATAFILE", "text=SELECT NAME, BYTES FROM V$TEMPFILE",
                    "text=SELECT NAME, BLOCK_SIZE*FILE_SIZE_BLKS FROM V$CONTROLFILE",
                    "text=SELECT MEMBER, GROUP# FROM V$LOGFILE", "text=SELECT CDB FROM V$DATABASE",
                    "text=SELECT NAME, GUID FROM V$PDBS", "text=ALTER SYSTEM ARCHIVE LOG CURRENT",
                    "text=ALTER SYSTEM ARCHIVE LOG ALL", "code=271",
                    "text=SELECT NAME, FIRST_CHANGE#, NEXT_CHANGE#, BLOCKS*BLOCK_SIZE, \\t\\t\\tTO_CHAR("
                    "SYS_EXTRACT_UTC(CAST(FIRST_TIME AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss'), TO_CHAR("
                    "SYS_EXTRACT_UTC(CAST(NEXT_TIME AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss'), SEQUENCE# FROM "
                    "V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR' AND RECID >= 2",
                    "text=create pfile='<TMP>' from spfile", "text=SELECT DBID FROM V$DATABASE",
                    "text=SELECT CURRENT_SCN FROM V$DATABASE",
                    "text=SELECT MAX(SEQUENCE#) FROM V$ARCHIVED_LOG WHERE STATUS != 'D'",
                    "text=SELECT SYS_CONTEXT('USERENV','DB_UNIQUE_NAME') FROM DUAL",
                    "text=SELECT SYS_CONTEXT('USERENV','DB_DOMAIN') FROM DUAL",
                    "text=SELECT NAME FROM V$RECOVERY_FILE_DEST",
                    "text=SELECT COUNT(*) FROM V$RESTORE_POINT WHERE GUARANTEE_FLASHBACK_DATABASE='YES'",
                    "text=SELECT VALUE FROM V$PARAMETER WHERE NAME='cluster_database'",
                    "text=SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'",
                    "text=SELECT RECID FROM V$ARCHIVED_LOG WHERE RECID=1 AND STAMP=1001",
                    "text=SELECT RECID, STAMP FROM V$ARCHIVED_LOG WHERE RECID=(SELECT MAX(RECID) FROM "
                    "V$ARCHIVED_LOG)"));
    // The skipped 10g database without ARCHIVELOG leaves its writer out.
    bool skip = false;
    wchar_t* error = nullptr;
    ASSERT_EQ(ORASNAP_EXPORT(library, OracleShouldSkipVssWriter)(L"ORA10", &skip, &error), S_OK);
    EXPECT_TRUE(skip);
    for (const char* untouched : {"BrelmTmp1", "BrelmTmp2", "EXCL"})
        EXPECT_FALSE(machine.contacted(untouched)) << untouched;

    // Again in the same process, without logs: no flush, no listing, no pfile.
    // The broken second entry ends the parsing, so EXCL is no longer excluded.
    const std::wstring broken = L"<config><dbrecids><db sid=\"CDB1\" recId=\"7\" stamp=\"1\" firstPassRecId=\"\"/>"
                                L"<db sid=\"ORA11\" recId=\"1\"/></dbrecids>"
                                L"<excludes><db name=\"EXCL\"/></excludes></config>";
    ASSERT_EQ(inventory.Explore(library, false, broken, document), S_OK) << util::wide_to_utf8(document);
    const std::string second = inventory.Mask(document);
    EXPECT_THAT(second, HasSubstr(homeHead + test::replace_all(cdb1Head, "reverted=\"false\"", "reverted=\"true\"") + cdb1Tail +
                                  "            <archived_logs />\n        </database>\n"));
    EXPECT_THAT(second, HasSubstr("<database isError=\"false\" name=\"EXCL\""));
    EXPECT_THAT(second, HasSubstr("<database isError=\"false\" name=\"PFAIL\""));
    EXPECT_THAT(second, HasSubstr(test::replace_all(ora11, util::base64_encode("*.db_name='ORA11'\n"), "")));
    EXPECT_THAT(inventory.Statements("CDB1"), Not(Contains(HasSubstr("ALTER SYSTEM"))));

    // A fresh library that asks ASM about each of the two logs there.
    machine.registry().set_dword(kConfigKey, L"CheckAsmLogFileExistence", 1);
    library_t asking(true);
    ASSERT_EQ(inventory.Explore(asking, true, L"", document), S_OK) << util::wide_to_utf8(document);
    const std::vector<std::string> asked = inventory.Statements("CDB1");
    EXPECT_EQ(std::count(asked.begin(), asked.end(),
                         "text=BEGIN \\n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \\n END;"),
              2);
}
// Whatever the caller sends, the config gives its tolerance or a logged
// warning, never a crash or a hang.
TEST(ExploreDbConfig, HostileDocumentsKeepWhatWasReadAndNeverCrash)
{
    test::log_capture_t capture;
    std::wstring deep;
    for (int i = 0; i < 20000; ++i)
        deep += L"<a>";
    for (const std::wstring& broken : {deep, std::wstring(L"<c><excludes><db name=\"A\"/>"), std::wstring(L"no xml")}) {
        const CExploreDbConfig config(broken);
        EXPECT_TRUE(config.dbRecIds.empty() && config.excludes.empty());
        EXPECT_THAT(capture.take(), Contains(HasSubstr("WARN|Failed to parse explore db config")));
    }
    // No entity is expanded, and a lone surrogate is only a character nobody has.
    EXPECT_TRUE(CExploreDbConfig(L"<!DOCTYPE c [<!ENTITY x \"<excludes><db name='X'/></excludes>\">]><c>&x;</c>")
                    .excludes.empty());
    EXPECT_THAT(CExploreDbConfig(L"<c><excludes><db name=\"A\"/><db name=\"\xD800\"/></excludes></c>").excludes,
                ElementsAre(L"A", Not(L"\xD800")));

    std::wstring many = L"<c><dbrecids><db sid=\"A\" recId=\"1\" stamp=\"2\" firstPassRecId=\"3\"/></dbrecids><excludes>";
    for (int i = 0; i < 100000; ++i)
        many += L"<db name=\"S" + std::to_wstring(i) + L"\"/>";
    const CExploreDbConfig config(many + L"</excludes></c>");
    ASSERT_EQ(config.excludes.size(), 100000u);
    EXPECT_EQ(config.excludes.back(), L"S99999");
    EXPECT_EQ(config.FindRecInfo(L"A")->firstPassRecId, L"3");
    EXPECT_EQ(config.FindRecInfo(L"a"), nullptr);
}

// A tool that never ends is ended with what it started once its time is up.
TEST(BoundedCommand, ALateToolIsEndedWithItsTreeAndAQuickOneFinishes)
{
    test::temp_folder_t folder;
    const std::wstring loop = folder.file(L"loop.bat");
    const std::wstring marker = folder.file(L"late.txt");
    WriteFile(loop, "@echo off\r\n:again\r\ngoto again\r\n");
    WriteFile(folder.file(L"outer.bat"), "@echo off\r\ncall \"" + util::wide_to_utf8(loop) + "\"\r\n");
    const DWORD start = GetTickCount();
    EXPECT_FALSE(RunCommandBounded(folder.file(L"outer.bat"), 1));
    EXPECT_LT(GetTickCount() - start, 10000u);
    EXPECT_TRUE(RunCommandBounded(L"echo done > " + marker, 30));
    EXPECT_TRUE(std::ifstream(marker.c_str()).good());
}

} // namespace
