// The backup cycle after the prepare, as the agent drives it through the
// exports of a private copy of the library against the simulated server: the
// finish on the live machine, and the restore on a machine brought back from
// the snapshot, whose prepare document reaches it in OracleMeta.xml.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "orasnap/orasnap.h"
#include "support/ocisim_world.h"
#include "support/orasnap_library.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

using testing::ElementsAreArray;

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_cycle_test.log";
const char kPassword[] = "Zq7-Sekr3t-Pw";

// One entry of a prepare document as the prepare writes it; `pdbs` are name=mode pairs.
std::string Entry(const std::string& sid, int action, bool autostart,
                  const std::vector<std::pair<std::string, std::string>>& pdbs = {})
{
    std::string entry = "<database sid=\"" + sid + "\" home=\"C:\\h\" timeUtc=\"2024-05-06T07:08:09\" scn=\"\" errMsg=\"\" "
                        "action=\"" + std::to_string(action) + "\" BackupWithBackupState=\"true\" autostart=\"" +
                        (autostart ? "true" : "false") + "\"><pdbs>";
    for (const auto& [name, mode] : pdbs)
        entry += "<database name=\"" + name + "\" mode=\"" + mode + "\" />";
    return entry + "</pdbs></database>";
}

std::wstring Document(const std::vector<std::string>& entries)
{
    std::string text;
    for (const std::string& entry : entries)
        text += entry;
    return util::utf8_to_wide("<databases>" + text + "</databases>");
}

// An instance with one data file (in backup mode when `hot`) and a SYSDBA user
// with the distinctive password.
ocisim::InstanceSetup Instance(const std::string& sid, ocisim::Fields properties, bool hot,
                               std::vector<std::pair<std::string, ocisim::Fields>> records = {})
{
    records.push_back({"datafile", {{"name", "C:\\" + sid + ".DBF"}, {"backup", hot ? "ACTIVE" : "NOT ACTIVE"}}});
    records.push_back({"user", {{"name", "system"}, {"password", kPassword}, {"sysdba", "yes"}}});
    return ocisim::InstanceSetup(sid, std::move(properties), std::move(records));
}

ocisim::Fields Pdb(const std::string& name, const std::string& mode)
{
    return {{"name", name}, {"guid", name}, {"open_mode", mode}};
}

// A machine for one scenario: the agent's settings in a sandboxed registry (no
// restore wait, `attempts` waits for an instance), the simulated server, whose
// instances archive into one folder, and a private copy of orasnap.dll per "process".
class CCycleMachine {
public:
    explicit CCycleMachine(int attempts)
    {
        CreateDirectoryW(root_.file(L"logs").c_str(), nullptr);
        registry_.set_string(kConfigKey, L"LogDirectory", root_.path());
        registry_.set_string(kConfigKey, L"OracleTempLogPath", root_.file(L"logs"));
        registry_.set_dword(kConfigKey, L"OracleRestoreWaitInSec", 0);
        registry_.set_dword(kConfigKey, L"OracleWaitDbStartedAttemptCount", static_cast<DWORD>(attempts));
    }

    // The instances as a process finds them, then that process: a fresh copy of
    // the library with singletons of its own.
    void StartProcess(const std::vector<ocisim::InstanceSetup>& instances)
    {
        ocisim::World world = ocisim::make_world(instances);
        for (auto& instance : world.instances())
            instance.set("archive_dest", util::wide_to_utf8(root_.path()));
        ocisim::write_state(world_.folder().file_utf8("scenario.txt"), world);
        library_.reset();
        library_ = std::make_unique<test::library_t>(true);
        wchar_t* error = nullptr;
        ORASNAP_EXPORT(*library_, OracleVssInitLib)(kLogName, &error);
    }

    // The call's HRESULT; `error` gets its error text.
    HRESULT Finish(const std::wstring& dbsXml, std::wstring& error)
    {
        const std::wstring password = util::utf8_to_wide(kPassword);
        return Take(ORASNAP_EXPORT(*library_, OracleFinishDbsBackup)(dbsXml.c_str(), L"system", password.c_str(), Cell()), error);
    }
    HRESULT Restore(std::wstring& error) { return Take(ORASNAP_EXPORT(*library_, OracleDoRestore)(Cell()), error); }

    bool RestoreRequired()
    {
        bool required = false;
        std::wstring error;
        Take(ORASNAP_EXPORT(*library_, OracleIsRestoreRequired)(&required, Cell()), error);
        return required;
    }

    // The metadata file as a prepare leaves it, without credentials.
    void WriteMeta(const std::wstring& dbsXml) const
    {
        std::ofstream(root_.file(L"logs\\OracleMeta.xml").c_str(), std::ios::binary)
            << "<restore dbPrepareXml=\"" + util::base64_encode(util::wide_to_utf8(dbsXml)) + "\" />\n";
    }

    // What the server was asked and answered since the last call.
    std::vector<std::string> Events()
    {
        std::vector<std::string> events;
        for (const std::string& line : world_.take_journal())
            for (const char* prefix : {"sql ", "startup ", "shutdown ", "error "})
                if (line.rfind(prefix, 0) == 0)
                    events.push_back(line);
        return events;
    }

    ocisim::World State() const { return ocisim::read_state(world_.folder().file_utf8("scenario.txt")); }

    // The library's log without its time and thread columns, lines ended by "\n".
    std::string Log() const
    {
        std::string lines;
        std::istringstream log(test::read_file_text(root_.file(kLogName)));
        for (std::string line; std::getline(log, line);) {
            const size_t text = line.find("> ");
            lines += (text == std::string::npos ? line : line.substr(text + 2));
            lines.back() = '\n';
        }
        return lines;
    }
    const std::wstring& Errors() const { return errors_; }

private:
    wchar_t** Cell()
    {
        cell_ = nullptr;
        return &cell_;
    }
    HRESULT Take(HRESULT status, std::wstring& error)
    {
        error = cell_ != nullptr ? library_->take(cell_) : L"";
        errors_ += error;
        return status;
    }

    test::registry_sandbox_t registry_;
    test::temp_folder_t root_;
    test::ocisim_world_t world_;
    std::unique_ptr<test::library_t> library_;
    wchar_t* cell_ = nullptr;
    std::wstring errors_;
};

std::string Backup(const ocisim::World& world, const std::string& sid)
{
    return world.find(sid)->records("datafile").front()->get("backup");
}

std::string PdbModes(const ocisim::World& world, const std::string& sid)
{
    std::string modes;
    for (const ocisim::Record* pdb : world.find(sid)->records("pdb"))
        modes += pdb->get("name") + "=" + pdb->get("open_mode") + ";";
    return modes;
}

} // namespace

TEST(Cycle, FinishUndoesEachActionOnTheLiveMachineAndOneFailureTouchesNoOtherDatabase)
{
    // The instances as the prepare left them; GONE was taken out of backup mode by hand.
    CCycleMachine machine(1);
    machine.StartProcess({Instance("FAIL", {}, false), Instance("IDLE", {{"status", "MOUNTED"}}, false),
                           Instance("GONE", {}, false), Instance("HOT", {}, true),
                           Instance("COLD", {{"status", "DOWN"}, {"log_mode", "NOARCHIVELOG"}, {"cdb", "YES"}}, false,
                                    {{"pdb", Pdb("PDBRW", "MOUNTED")}, {"pdb", Pdb("PDBRO", "MOUNTED")},
                                     {"pdb", Pdb("PDBUP", "MOUNTED")}, {"pdb", Pdb("PDBMNT", "MOUNTED")}}),
                           Instance("VSSDB", {}, false), Instance("SKIP", {}, false), Instance("NOACT", {}, false),
                           Instance("ODD", {}, false)});
    const std::wstring document = Document(
        {Entry("FAIL", 0, true), Entry("IDLE", 1, true), Entry("GONE", 2, true), Entry("HOT", 2, false),
         Entry("COLD", 3, false, {{"PDBRW", "READ WRITE"}, {"PDBRO", "READ ONLY"}, {"PDBUP", "MIGRATE"}}),
         Entry("VSSDB", 4, true), Entry("SKIP", 5, true), Entry("NOACT", 6, true), Entry("ODD", 7, true)});
    machine.WriteMeta(document);
    ASSERT_TRUE(machine.RestoreRequired());

    // A document that can't be read touches nothing and keeps the metadata.
    std::wstring error;
    EXPECT_EQ(machine.Finish(document.substr(0, document.size() / 2), error), E_FAIL);
    EXPECT_THAT(error, testing::EndsWith(L"\n--tr:Failed to finish dbs backup\n--tr:Oracle manager failed to finish dbs backup"));
    EXPECT_TRUE(machine.RestoreRequired());
    EXPECT_TRUE(machine.Events().empty());

    ASSERT_EQ(machine.Finish(document, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_FALSE(machine.RestoreRequired());
    EXPECT_THAT(machine.Events(),
                ElementsAreArray({
                    "sql sid=GONE text=SELECT STATUS FROM V$INSTANCE",
                    "sql sid=GONE text=SELECT DATABASE_STATUS FROM V$INSTANCE",
                    "sql sid=GONE text=ALTER DATABASE END BACKUP",
                    "error sid=GONE code=1142",
                    "sql sid=HOT text=SELECT STATUS FROM V$INSTANCE",
                    "sql sid=HOT text=SELECT DATABASE_STATUS FROM V$INSTANCE",
                    "sql sid=HOT text=ALTER DATABASE END BACKUP",
                    "sql sid=HOT text=ALTER SYSTEM ARCHIVE LOG CURRENT",
                    // The instance is down: the session made to find that out is refused, and
                    // ending it after the startup finds nobody logged on.
                    "error sid=COLD code=1034",
                    // Started although it doesn't start with the machine: autostart only counts after a restore.
                    "startup sid=COLD",
                    "sql sid=COLD text=ALTER DATABASE MOUNT",
                    "sql sid=COLD text=ALTER DATABASE OPEN",
                    "error sid=COLD code=1012",
                    "sql sid=COLD text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBRW'",
                    "sql sid=COLD text=ALTER PLUGGABLE DATABASE \"PDBRW\" OPEN READ WRITE",
                    "sql sid=COLD text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBRO'",
                    "sql sid=COLD text=ALTER PLUGGABLE DATABASE \"PDBRO\" OPEN READ ONLY",
                    "sql sid=COLD text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBUP'",
                    "sql sid=COLD text=ALTER PLUGGABLE DATABASE \"PDBUP\" OPEN UPGRADE",
                }));
    const ocisim::World state = machine.State();
    EXPECT_EQ(Backup(state, "HOT"), "NOT ACTIVE");
    EXPECT_EQ(state.find("COLD")->get("status"), "OPEN");
    EXPECT_EQ(PdbModes(state, "COLD"), "PDBRW=READ WRITE;PDBRO=READ ONLY;PDBUP=MIGRATE;PDBMNT=MOUNTED;");

    const std::string log = machine.Log();
    for (const char* line : {
             "oralib|   Finish db backup. Sid: FAIL, action: failure, autostart: true\n"
             "oralib|     Database backup prepare finished with error\n",
             "oralib|     Database is inactive. Nothing to do.\n",
             "oralib|   Finish db backup. Sid: GONE, action: backup, autostart: true Failed.\n",
             "oralib| ERR |Failed to finish db backup. Sid: GONE\n",
             "oralib|     Database backup performed by VSS. Nothing to do.\n",
             "oralib|   Finish db backup. Sid: NOACT, action: oracleNoAction, autostart: true\n"
             "oralib|     Oracle version is not supported. Nothing to do.\n",
             "oralib|   Finish db backup. Sid: ODD, action: unknown, autostart: true Failed.\n",
             "oralib| ERR |Failed to finish db backup. Sid: ODD\n",
             "oralib| >>  |Unexpected backup action: 7\n",
             "oralib| Finish dbs backup ok.\n",
         })
        EXPECT_NE(log.find(line), std::string::npos) << line;
    EXPECT_EQ((log + util::wide_to_utf8(machine.Errors())).find(kPassword), std::string::npos);
}

TEST(Cycle, RestoreEndsBackupStatesStartsWhatShouldStartAndRunsOnce)
{
    const std::wstring document = Document(
        {Entry("FAIL", 0, true), Entry("IDLE", 1, true), Entry("HOT", 2, true), Entry("MNT", 2, false),
         Entry("CDB", 4, true,
               {{"PRW", "READ WRITE"}, {"PBAD", "READ WRITE"}, {"PRO", "READ ONLY"}, {"PUP", "MIGRATE"}}),
         Entry("COLDUP", 3, true), Entry("COLDOFF", 3, false)});
    CCycleMachine machine(1);
    machine.WriteMeta(document);
    // The snapshot's machine comes up: the services started what they start, and
    // a database with files in backup mode stops at mounted.
    machine.StartProcess(
        {Instance("FAIL", {}, false), Instance("IDLE", {{"status", "DOWN"}}, false),
         Instance("HOT", {{"status", "MOUNTED"}}, true), Instance("MNT", {{"status", "MOUNTED"}}, true),
         Instance("CDB", {{"cdb", "YES"}}, false,
                  {{"pdb", Pdb("PRW", "MOUNTED")}, {"pdb", Pdb("PBAD", "MOUNTED")}, {"pdb", Pdb("PRO", "READ ONLY")},
                   {"pdb", Pdb("PUP", "MOUNTED")},
                   {"fault", {{"kind", "error"}, {"text", "\"PBAD\" OPEN"}, {"code", "65020"}}}}),
         Instance("COLDUP", {{"status", "DOWN"}}, false), Instance("COLDOFF", {{"status", "DOWN"}}, false)});
    ASSERT_TRUE(machine.RestoreRequired());

    std::wstring error;
    ASSERT_EQ(machine.Restore(error), S_OK) << util::wide_to_utf8(error);
    EXPECT_FALSE(machine.RestoreRequired());
    EXPECT_THAT(machine.Events(),
                ElementsAreArray({
                    "sql sid=HOT text=SELECT STATUS FROM V$INSTANCE",
                    "sql sid=HOT text=ALTER DATABASE END BACKUP",
                    "sql sid=HOT text=ALTER DATABASE OPEN",
                    "sql sid=HOT text=ALTER SYSTEM ARCHIVE LOG CURRENT",
                    "sql sid=MNT text=SELECT STATUS FROM V$INSTANCE",
                    "sql sid=MNT text=ALTER DATABASE END BACKUP",
                    "sql sid=CDB text=SELECT STATUS FROM V$INSTANCE",
                    "sql sid=CDB text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PRW'",
                    "sql sid=CDB text=ALTER PLUGGABLE DATABASE \"PRW\" OPEN READ WRITE",
                    "sql sid=CDB text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PBAD'",
                    "sql sid=CDB text=ALTER PLUGGABLE DATABASE \"PBAD\" OPEN READ WRITE",
                    "error sid=CDB code=65020",
                    "sql sid=CDB text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PRO'",
                    "sql sid=CDB text=SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PUP'",
                    "sql sid=CDB text=ALTER PLUGGABLE DATABASE \"PUP\" OPEN UPGRADE",
                    "error sid=COLDUP code=1034",
                    "startup sid=COLDUP",
                    "sql sid=COLDUP text=ALTER DATABASE MOUNT",
                    "sql sid=COLDUP text=ALTER DATABASE OPEN",
                    "error sid=COLDUP code=1012",
                }));
    const ocisim::World state = machine.State();
    EXPECT_EQ(state.find("HOT")->get("status") + "/" + Backup(state, "HOT"), "OPEN/NOT ACTIVE");
    EXPECT_EQ(state.find("MNT")->get("status") + "/" + Backup(state, "MNT"), "MOUNTED/NOT ACTIVE");
    EXPECT_EQ(PdbModes(state, "CDB"), "PRW=READ WRITE;PBAD=MOUNTED;PRO=READ ONLY;PUP=MIGRATE;");
    EXPECT_EQ(state.find("COLDUP")->get("status"), "OPEN");
    EXPECT_EQ(state.find("COLDOFF")->get("status"), "DOWN");
    const std::string log = machine.Log();
    for (const char* line : {"oralib|   Waiting for 0 sec\n", "oralib| WARN|Failed to restore pdb: PBAD\n",
                             "oralib|     Finish db backup. Sid: COLDOFF, action: shutdown, autostart: false\n"
                             "oralib|     Finish db backup. Sid: COLDOFF, action: shutdown, autostart: false ok.\n",
                             "oralib| Performing oracle db restore ok.\n"})
        EXPECT_NE(log.find(line), std::string::npos) << line;

    // The file went before the work: a second restore has no document and touches nothing.
    EXPECT_EQ(machine.Restore(error), E_FAIL);
    EXPECT_EQ(error, L"XML error: [Error document empty.]. Error code: [12].\n"
                     L"--tr:Failed to parse XML content. Source content: [].\n"
                     L"--tr:Failed to finish dbs backup\n"
                     L"--tr:Oracle manager failed to do db restore");
    EXPECT_TRUE(machine.Events().empty());
}

TEST(Cycle, RestoreStartsInstancesThatNeverCameUpAndLeavesOneThatCannotBeReached)
{
    const std::wstring document =
        Document({Entry("LOST", 4, true), Entry("DOWNHOT", 2, true), Entry("SEEN", 2, true)});
    CCycleMachine machine(0);
    machine.WriteMeta(document);
    machine.StartProcess({Instance("LOST", {}, false, {{"fault", {{"kind", "error"}, {"at", "attach"}, {"code", "12560"}}}}),
                            Instance("DOWNHOT", {{"status", "DOWN"}}, true),
                            Instance("SEEN", {{"status", "MOUNTED"}}, true)});

    std::wstring error;
    ASSERT_EQ(machine.Restore(error), S_OK) << util::wide_to_utf8(error);
    // DOWNHOT: two sessions find the instance down (and find nobody to log off
    // afterwards) before it is started, mounted, ended and opened. SEEN is up.
    EXPECT_THAT(machine.Events(), ElementsAreArray({
                                      "error sid=LOST code=12560",
                                      "error sid=DOWNHOT code=1034",
                                      "error sid=DOWNHOT code=1012",
                                      "error sid=DOWNHOT code=1034",
                                      "error sid=DOWNHOT code=1012",
                                      "startup sid=DOWNHOT",
                                      "sql sid=DOWNHOT text=ALTER DATABASE MOUNT",
                                      "sql sid=DOWNHOT text=ALTER DATABASE END BACKUP",
                                      "sql sid=DOWNHOT text=ALTER DATABASE OPEN",
                                      "sql sid=DOWNHOT text=ALTER SYSTEM ARCHIVE LOG CURRENT",
                                  }));
    const ocisim::World state = machine.State();
    EXPECT_EQ(state.find("DOWNHOT")->get("status") + "/" + Backup(state, "DOWNHOT"), "OPEN/NOT ACTIVE");
    // With no attempts left an instance that is up is not touched.
    EXPECT_EQ(state.find("SEEN")->get("status") + "/" + Backup(state, "SEEN"), "MOUNTED/ACTIVE");
    EXPECT_NE(machine.Log().find("oralib| ERR |Failed to create session holder for SID: LOST\n"), std::string::npos);
}
