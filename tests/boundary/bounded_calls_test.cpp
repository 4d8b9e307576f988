// Statements that hang and clients that crash, through the finish export of a
// private copy of the library: each costs its own database at most the
// connection timeout, and the others finish their work.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "orasnap/orasnap.h"
#include "support/orasnap_library.h"
#include "support/sim_machine.h"

namespace {

using testing::HasSubstr;
using testing::Not;

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_bounded_test.log";

// An open database in backup mode, archiving into the world's folder.
ocisim::InstanceSetup HotDatabase(const std::string& sid, const std::string& archive, ocisim::Fields properties,
                                  std::vector<std::pair<std::string, ocisim::Fields>> records = {})
{
    properties["archive_dest"] = archive;
    records.push_back({"datafile", {{"name", "C:\\" + sid + ".DBF"}, {"backup", "ACTIVE"}}});
    return ocisim::InstanceSetup(sid, std::move(properties), std::move(records));
}

ocisim::Fields Fault(const std::string& kind, const std::string& at, const std::string& text)
{
    return {{"kind", kind}, {"at", at}, {"text", text}};
}

std::string Entry(const std::string& sid, const std::wstring& home)
{
    return "<database sid=\"" + sid + "\" home=\"" + util::wide_to_utf8(home) +
           "\" timeUtc=\"2024-05-06T07:08:09\" scn=\"\" errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" "
           "autostart=\"true\"><pdbs></pdbs></database>";
}

std::vector<std::string> Lines(const std::string& sid, const std::vector<std::string>& journal)
{
    std::vector<std::string> lines;
    for (const std::string& line : journal)
        if (line.find(" sid=" + sid) != std::string::npos)
            lines.push_back(line);
    return lines;
}

} // namespace

TEST(BoundedCalls, HungStatementsAndClientCrashesFailOnlyTheirOwnDatabaseWithinTheTimeout)
{
    test::sim_machine_t machine;
    const std::string archive = machine.world().folder().file_utf8("arch");
    CreateDirectoryW(machine.world().folder().file(L"arch").c_str(), nullptr);
    machine.registry().set_dword(kConfigKey, L"OracleConnectionTimeout", 1);
    machine.registry().set_string(kConfigKey, L"LogDirectory", machine.world().folder().path());
    const std::vector<std::string> sids = {"GOOD1", "ARCHHANG", "OLDHANG", "CRASH", "FETCHCRASH", "GOOD2"};
    machine.add_instance(HotDatabase("GOOD1", archive, {}));
    // The archiver is stuck: the client's call timeout cuts the flush after the snapshot.
    machine.add_instance(HotDatabase("ARCHHANG", archive, {}, {{"fault", Fault("hang", "sql", "ARCHIVE LOG CURRENT")}}));
    // A client from before call timeouts: only the watchdog's OCIBreak ends the hang.
    machine.add_instance(
        HotDatabase("OLDHANG", archive, {{"call_timeout", "no"}}, {{"fault", Fault("hang", "sql", "END BACKUP")}}));
    machine.add_instance(HotDatabase("CRASH", archive, {}, {{"fault", Fault("av", "sql", "END BACKUP")}}));
    machine.add_instance(HotDatabase("FETCHCRASH", archive, {}, {{"fault", Fault("av", "fetch", "DATABASE_STATUS")}}));
    machine.add_instance(HotDatabase("GOOD2", archive, {}));

    test::library_t library(true);
    wchar_t* error = nullptr;
    ASSERT_EQ(ORASNAP_EXPORT(library, OracleVssInitLib)(kLogName, &error), S_OK);
    std::string document = "<databases>";
    for (const std::string& sid : sids)
        document += Entry(sid, machine.home_path());
    const std::wstring dbsXml = util::utf8_to_wide(document + "</databases>");

    const auto start = std::chrono::steady_clock::now();
    error = test::untouched_text;
    const HRESULT hr = ORASNAP_EXPORT(library, OracleFinishDbsBackup)(dbsXml.c_str(), L"", L"", &error);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    ASSERT_EQ(hr, S_OK) << util::wide_to_utf8(library.take(error));
    // Two hangs of one second each, with room for a slow machine; unbounded, they never return.
    EXPECT_LT(elapsed, std::chrono::seconds(5));

    const ocisim::World state = ocisim::read_state(machine.world().folder().file_utf8("scenario.txt"));
    std::string backup;
    for (const std::string& sid : sids)
        backup += sid + "=" + state.find(sid)->records("datafile").front()->get("backup") + ";";
    EXPECT_EQ(backup, "GOOD1=NOT ACTIVE;ARCHHANG=NOT ACTIVE;OLDHANG=ACTIVE;CRASH=ACTIVE;FETCHCRASH=ACTIVE;"
                      "GOOD2=NOT ACTIVE;");

    const std::vector<std::string> journal = machine.world().journal();
    for (const char* sid : {"GOOD1", "GOOD2"})
        EXPECT_THAT(Lines(sid, journal), testing::Contains(std::string("sql sid=") + sid +
                                                           " text=ALTER SYSTEM ARCHIVE LOG CURRENT"));
    EXPECT_THAT(Lines("ARCHHANG", journal), testing::IsSupersetOf({"fault sid=ARCHHANG kind=hang at=sql",
                                                                  "error sid=ARCHHANG code=3156"}));
    EXPECT_THAT(Lines("OLDHANG", journal),
                testing::IsSupersetOf({"break sid=OLDHANG", "error sid=OLDHANG code=1013"}));
    // A session that timed out or crashed is left as it is: no more statements, no logoff.
    for (const char* sid : {"ARCHHANG", "OLDHANG", "CRASH", "FETCHCRASH"})
        EXPECT_THAT(Lines(sid, journal), Not(testing::Contains(HasSubstr("logoff")))) << sid;
    EXPECT_THAT(Lines("GOOD2", journal), testing::Contains("logoff sid=GOOD2"));

    std::string log = test::read_file_text(machine.world().folder().file(kLogName));
    log.erase(std::remove(log.begin(), log.end(), '\r'), log.end());
    for (const std::string line : {
             "ERR |Failed to finish db backup. Sid: ARCHHANG\n",
             ">>  |The statement [ALTER SYSTEM ARCHIVE LOG CURRENT] on SID ARCHHANG did not finish within the "
             "connection timeout of 1 s and was cancelled; the session is not used again.\n",
             "The Oracle client refuses call timeouts: statements on SID OLDHANG are cancelled with OCIBreak after 1 s.\n",
             ">>  |The statement [ALTER DATABASE END BACKUP] on SID OLDHANG did not finish within the connection "
             "timeout of 1 s and was cancelled; the session is not used again.\n",
             "ERR |The Oracle client crashed in OCIStmtExecute with the exception 0xc0000005; the process may be "
             "unstable.\n",
             ">>  |The Oracle client crashed in OCIStmtExecute with the exception 0xc0000005.\n",
             "ERR |The Oracle client crashed in OCIStmtFetch2 with the exception 0xc0000005; the process may be "
             "unstable.\n",
             ">>  |SEH exception has occurred while checking oracle status, exception code: 0xc0000005\n",
             "ERR |Failed to finish db backup. Sid: FETCHCRASH\n",
             "Finish db backup. Sid: GOOD2, action: backup, autostart: true ok.\n",
         })
        EXPECT_NE(log.find(line), std::string::npos) << line;
}
