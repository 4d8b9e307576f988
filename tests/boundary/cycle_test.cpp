// The backup cycle as the agent drives it through the exports of a private
// copy of the library against the simulated server: the prepare before the
// snapshot, the finish on the live machine, and the restore on a machine
// brought back from the snapshot, whose prepare document reaches it in
// OracleMeta.xml.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "common/strings/strings.h"
#include "orasnap/orasnap.h"
#include "support/kept_documents.h"
#include "support/ocisim_world.h"
#include "support/orasnap_library.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace {

using testing::ElementsAreArray;

const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogName[] = L"orasnap_cycle_test.log";
const char kPassword[] = "Zq7-Sekr3t-Pw";
const wchar_t kHomeKey[] = L"SOFTWARE\\ORACLE\\KEY_Home1";
const wchar_t kManualHomeKey[] = L"SOFTWARE\\ORACLE\\KEY_Manual";

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
        registry_.set_dword(kConfigKey, L"UseOracleAutostartOption", 1);
        registry_.set_string(kHomeKey, L"ORACLE_HOME", L"C:\\h");
        registry_.set_string(kHomeKey, L"ORACLE_HOME_NAME", L"Home1");
        registry_.set_string(kManualHomeKey, L"ORACLE_HOME", L"C:\\m");
        registry_.set_string(kManualHomeKey, L"ORACLE_HOME_NAME", L"Manual");
        registry_.set_string(kManualHomeKey, L"ORA_MANUAL_AUTOSTART", L"FALSE");
    }

    // An agent setting read by the next process.
    void Setting(const wchar_t* name, DWORD value) { registry_.set_dword(kConfigKey, name, value); }

    // Registers the services the prepare finds: in the home whose instances start
    // with the machine, or for `manual` SIDs in one whose instances don't; "+" SIDs are ASM.
    void Install(const std::vector<std::string>& sids, const std::vector<std::string>& manual = {})
    {
        for (const std::string& name : sids) {
            const bool isAsm = name[0] == '+';
            const std::wstring sid = util::utf8_to_wide(isAsm ? name.substr(1) : name);
            const bool isManual = std::find(manual.begin(), manual.end(), name) != manual.end();
            registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\" +
                                     std::wstring(isAsm ? L"OracleASMService" : L"OracleService") + sid,
                                 L"ImagePath", std::wstring(isManual ? L"C:\\m" : L"C:\\h") + L"\\bin\\oracle.exe " + sid,
                                 REG_EXPAND_SZ);
        }
    }

    // The instances as a process finds them, then that process: a fresh copy of
    // the library with singletons of its own.
    void StartProcess(const std::vector<ocisim::InstanceSetup>& instances) { StartProcess(ocisim::make_world(instances)); }
    void StartProcess(ocisim::World world)
    {
        for (auto& instance : world.instances())
            instance.set("archive_dest", util::wide_to_utf8(root_.path()));
        ocisim::write_state(world_.folder().file_utf8("scenario.txt"), world);
        library_.reset();
        library_ = std::make_unique<test::library_t>(true);
        wchar_t* error = nullptr;
        ORASNAP_EXPORT(*library_, OracleVssInitLib)(kLogName, &error);
    }

    // The call's HRESULT; `result` and `error` get its texts.
    HRESULT Prepare(const std::wstring& dbsXml, std::wstring& result, std::wstring& error,
                    const std::wstring& osLogin = L"", const std::wstring& osPassword = L"")
    {
        const std::wstring password = util::utf8_to_wide(kPassword);
        wchar_t* text = nullptr;
        const HRESULT status = ORASNAP_EXPORT(*library_, OraclePrepareDbsForBackup)(
            dbsXml.c_str(), L"", L"system", password.c_str(), osLogin.c_str(), osPassword.c_str(), &text, Cell());
        result = text != nullptr ? library_->take(text) : L"";
        return Take(status, error);
    }
    HRESULT Finish(const std::wstring& dbsXml, std::wstring& error)
    {
        const std::wstring password = util::utf8_to_wide(kPassword);
        return Take(ORASNAP_EXPORT(*library_, OracleFinishDbsBackup)(dbsXml.c_str(), L"system", password.c_str(), Cell()), error);
    }
    HRESULT Restore(std::wstring& error) { return Take(ORASNAP_EXPORT(*library_, OracleDoRestore)(Cell()), error); }

    bool Skipped(const wchar_t* sid)
    {
        bool skip = false;
        std::wstring error;
        Take(ORASNAP_EXPORT(*library_, OracleShouldSkipVssWriter)(sid, &skip, Cell()), error);
        return skip;
    }

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

    std::string MetaFile() const { return test::read_document_file(root_.file(L"logs\\OracleMeta.xml")); }
    void PutMetaFile(const std::string& text) const
    {
        std::ofstream(root_.file(L"logs\\OracleMeta.xml").c_str(), std::ios::binary) << text;
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
        std::istringstream log(LogBytes());
        for (std::string line; std::getline(log, line);) {
            const size_t text = line.find("> ");
            lines += (text == std::string::npos ? line : line.substr(text + 2));
            lines.back() = '\n';
        }
        return lines;
    }
    std::string LogBytes() const { return test::read_file_text(root_.file(kLogName)); }
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


// What the server was asked for `sid`, in order: SQL texts as they stand, and
// "error <code>", "shutdown <mode>" and "startup" for the other events.
std::vector<std::string> Asked(const std::string& sid, const std::vector<std::string>& events)
{
    std::vector<std::string> lines;
    for (const std::string& event : events) {
        const std::string word = event.substr(0, event.find(' '));
        const std::string rest = event.substr(word.size() + (word.size() < event.size() ? 1 : 0));
        if (word == "error")
            lines.push_back("error sid=" + sid + " code=" + rest);
        else if (word == "shutdown")
            lines.push_back("shutdown sid=" + sid + " mode=" + rest);
        else if (word == "startup")
            lines.push_back("startup sid=" + sid);
        else
            lines.push_back("sql sid=" + sid + " text=" + event);
    }
    return lines;
}

// The prepare document with each timeUtc, once checked for its form, replaced by "T".
std::string Stamped(const std::wstring& document)
{
    const std::regex stamp("timeUtc=\"([^\"]*)\"");
    const std::string text = util::wide_to_utf8(document);
    for (std::sregex_iterator it(text.begin(), text.end(), stamp), end; it != end; ++it)
        EXPECT_TRUE(std::regex_match((*it)[1].str(), std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d"))) << (*it)[1];
    return std::regex_replace(text, stamp, "timeUtc=\"T\"");
}

ocisim::Fields Fault(const std::string& text, const std::string& code)
{
    return {{"kind", "error"}, {"text", text}, {"code", code}};
}

// The statements of a prepare that found the database open and active, up to its version.
const std::vector<std::string> kOpenChecks = {
    "SELECT STATUS FROM V$INSTANCE", "SELECT DATABASE_STATUS FROM V$INSTANCE",
    "SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE", "SELECT DATABASE_STATUS FROM V$INSTANCE",
    "SELECT VERSION FROM V$INSTANCE"};
// ... and those of a database whose writer the agent enabled: the skip test's
// control file and container questions, then the plugged databases' own.
const std::vector<std::string> kWriterChecks = {"SELECT NAME FROM V$CONTROLFILE WHERE ROWNUM=1",
                                                "SELECT CDB FROM V$DATABASE", "SELECT CDB FROM V$DATABASE"};

std::vector<std::string> Join(std::vector<std::vector<std::string>> parts)
{
    std::vector<std::string> all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
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


TEST(Cycle, PrepareGivesEachDatabaseItsActionAndTheFinishUndoesItWhileFailuresStayWithTheirDatabase)
{
    // One failure per step that can fail, each beside databases that must not notice it.
    CCycleMachine machine(1);
    machine.Install({"+ASM", "BrelmTmpX", "CDBW", "FBEGIN", "FOPT", "FSCN", "FSHUT", "FVSSSCN", "HOT", "IDLE", "NOSESS",
                     "OLD10A", "OLD10N", "PLAIN", "VSSDB", "COLD"},
                    {"COLD"});
    const ocisim::Fields noArchive = {{"log_mode", "NOARCHIVELOG"}};
    machine.StartProcess(
        {Instance("ASM", {{"status", "STARTED"}}, false), Instance("BrelmTmpX", {}, false),
         Instance("CDBW", {{"cdb", "YES"}}, false), Instance("FBEGIN", {}, false, {{"fault", Fault("BEGIN BACKUP", "1123")}}),
         Instance("FOPT", {}, false, {{"fault", Fault("LOG_MODE", "3113")}}),
         Instance("FSCN", {}, false, {{"fault", Fault("CURRENT_SCN", "3113")}}),
         Instance("FSHUT", noArchive, false, {{"fault", Fault("CLOSE NORMAL", "1109")}}),
         Instance("FVSSSCN", {}, false, {{"fault", Fault("CURRENT_SCN", "3113")}}), Instance("HOT", {}, true),
         Instance("IDLE", {{"status", "MOUNTED"}}, false),
         Instance("NOSESS", {}, false, {{"fault", {{"kind", "error"}, {"at", "attach"}, {"code", "12560"}}}}),
         Instance("OLD10A", {{"version", "10.2.0.4.0"}}, false),
         Instance("OLD10N", {{"version", "10.2.0.4.0"}, {"log_mode", "NOARCHIVELOG"}}, false),
         Instance("PLAIN", {}, false), Instance("VSSDB", {{"current_scn", "4711"}}, false),
         Instance("COLD", {{"log_mode", "NOARCHIVELOG"}, {"cdb", "YES"}}, false,
                  {{"pdb", Pdb("PDBRW", "READ WRITE")}, {"pdb", Pdb("PDBRO", "READ ONLY")},
                   {"pdb", Pdb("PDBUP", "MIGRATE")}, {"pdb", Pdb("PDBMNT", "MOUNTED")}})});

    // Writers are named in any case and under any element name; PLAIN's isn't named at all.
    std::wstring document, error;
    ASSERT_EQ(machine.Prepare(L"<databases><database sid=\"vssdb\"/><x sid=\"CDBW\"/><database sid=\"FVSSSCN\"/></databases>",
                              document, error),
              S_OK)
        << util::wide_to_utf8(error);
    const std::string ora3113 = "Oracle error has occurred. ORA-03113: end-of-file on communication channel&#x0A;&#x0A;";
    EXPECT_EQ(Stamped(document),
              "<databases>\n"
              "    <database sid=\"CDBW\" home=\"C:\\h\" timeUtc=\"T\" scn=\"1000000\" errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"FBEGIN\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"Oracle error has occurred. ORA-01123: cannot start online backup; media recovery not enabled&#x0A;&#x0A;--tr:Failed to exec query [ALTER DATABASE BEGIN BACKUP].\" action=\"0\" BackupWithBackupState=\"false\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"FOPT\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"" + ora3113 + "--tr:Failed to exec query [SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE].&#x0A;--tr:OracleSession: failed to get database options.\" action=\"0\" BackupWithBackupState=\"false\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"FSCN\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"" + ora3113 + "--tr:Failed to exec query [SELECT CURRENT_SCN FROM V$DATABASE].\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"FSHUT\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"Oracle error has occurred. ORA-01109: database not open&#x0A;&#x0A;--tr:Failed to exec query [ALTER DATABASE CLOSE NORMAL].&#x0A;--tr:Failed to shutdown database\" action=\"0\" BackupWithBackupState=\"false\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"FVSSSCN\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"" + ora3113 + "--tr:Failed to exec query [SELECT CURRENT_SCN FROM V$DATABASE].\" action=\"4\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"HOT\" home=\"C:\\h\" timeUtc=\"T\" scn=\"1000000\" errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"IDLE\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"\" action=\"1\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"NOSESS\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"\" action=\"0\" BackupWithBackupState=\"false\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"OLD10A\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"\" action=\"6\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"OLD10N\" home=\"C:\\h\" timeUtc=\"T\" scn=\"\" errMsg=\"\" action=\"5\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"PLAIN\" home=\"C:\\h\" timeUtc=\"T\" scn=\"1000000\" errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"VSSDB\" home=\"C:\\h\" timeUtc=\"T\" scn=\"4711\" errMsg=\"\" action=\"4\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs />\n    </database>\n"
              "    <database sid=\"COLD\" home=\"C:\\m\" timeUtc=\"T\" scn=\"\" errMsg=\"\" action=\"3\" BackupWithBackupState=\"true\" autostart=\"false\">\n"
              "        <pdbs>\n"
              "            <database name=\"PDBRW\" mode=\"READ WRITE\" />\n"
              "            <database name=\"PDBRO\" mode=\"READ ONLY\" />\n"
              "            <database name=\"PDBUP\" mode=\"MIGRATE\" />\n"
              "        </pdbs>\n    </database>\n"
              "</databases>\n");

    const std::vector<std::string> backup = {"SELECT STATUS FROM V$BACKUP", "ALTER DATABASE BEGIN BACKUP",
                                             "SELECT CURRENT_SCN FROM V$DATABASE"};
    const std::vector<std::string> close = {"shutdown IMMEDIATE", "ALTER DATABASE CLOSE NORMAL"};
    const std::vector<std::string> cdb = {"SELECT CDB FROM V$DATABASE"};
    EXPECT_THAT(machine.Events(),
                ElementsAreArray(Join({
                    Asked("CDBW", Join({kOpenChecks, kWriterChecks, {"SELECT NAME, OPEN_MODE FROM V$PDBS"}, backup})),
                    Asked("FBEGIN", Join({kOpenChecks, cdb, {backup[0], backup[1], "error 1123"}})),
                    Asked("FOPT", {kOpenChecks[0], kOpenChecks[1], kOpenChecks[2], "error 3113"}),
                    Asked("FSCN", Join({kOpenChecks, cdb, backup, {"error 3113"}})),
                    Asked("FSHUT", Join({kOpenChecks, cdb, close, {"error 1109"}})),
                    Asked("FVSSSCN", Join({kOpenChecks, kWriterChecks, {backup[2], "error 3113"}})),
                    // Left in backup mode by an earlier cycle: not switched again.
                    Asked("HOT", Join({kOpenChecks, cdb, {backup[0], backup[2]}})),
                    Asked("IDLE", {kOpenChecks[0]}),
                    // The logon as SYSDBA, then the plain one.
                    Asked("NOSESS", {"error 12560", "error 12560"}),
                    Asked("OLD10A", kOpenChecks),
                    Asked("OLD10N", kOpenChecks),
                    Asked("PLAIN", Join({kOpenChecks, cdb, backup})),
                    Asked("VSSDB", Join({kOpenChecks, kWriterChecks, {backup[2]}})),
                    Asked("COLD", Join({kOpenChecks, cdb, {"SELECT NAME, OPEN_MODE FROM V$PDBS"}, close,
                                        {"ALTER DATABASE DISMOUNT", "shutdown FINAL"}})),
                })));
    // Only a writer the agent enabled and the database can't use is left out.
    EXPECT_TRUE(machine.Skipped(L"CDBW"));
    EXPECT_FALSE(machine.Skipped(L"VSSDB"));
    EXPECT_FALSE(machine.Skipped(L"PLAIN"));
    EXPECT_TRUE(machine.RestoreRequired());
    const std::string log = machine.Log();
    for (const char* line : {"oralib|     VSS writer for SID CDBW is enabled\n",
                             "oralib|       Database settings:\n"
                             "oralib|       Version 12 or higher: true\n"
                             "oralib|       Active: true\n"
                             "oralib|       Archivelog: true\n"
                             "oralib|       Pluggable: true\n"
                             "oralib|       Located on ASM: false\n"
                             "oralib|       Skip from VSS: true\n",
                             "oralib|     VSS writer for SID PLAIN is disabled\n",
                             "oralib|       Database already in backup state\n",
                             "oralib|     Database is in correct state for VSS backup. Nothing to do.\n",
                             "oralib| ERR |Failed to prepare db for backup. Sid: FSHUT\n",
                             "oralib| ERR |Failed to create session holder for SID: NOSESS\n",
                             "oralib| Preparing dbs for backup ok.\n"})
        EXPECT_NE(log.find(line), std::string::npos) << line;

    // The finish ends every backup state, the failed SCN's included, and starts the cold database.
    const std::vector<std::string> end = {kOpenChecks[0], kOpenChecks[1], "ALTER DATABASE END BACKUP",
                                          "ALTER SYSTEM ARCHIVE LOG CURRENT"};
    ASSERT_EQ(machine.Finish(document, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_FALSE(machine.RestoreRequired());
    EXPECT_THAT(machine.Events(),
                ElementsAreArray(Join({
                    Asked("CDBW", end), Asked("FSCN", end), Asked("HOT", end), Asked("PLAIN", end),
                    Asked("COLD", {"error 1034", "startup", "ALTER DATABASE MOUNT", "ALTER DATABASE OPEN", "error 1012",
                                   "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBRW'",
                                   "ALTER PLUGGABLE DATABASE \"PDBRW\" OPEN READ WRITE",
                                   "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBRO'",
                                   "ALTER PLUGGABLE DATABASE \"PDBRO\" OPEN READ ONLY",
                                   "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDBUP'",
                                   "ALTER PLUGGABLE DATABASE \"PDBUP\" OPEN UPGRADE"}),
                })));
    const ocisim::World state = machine.State();
    for (const char* sid : {"CDBW", "FBEGIN", "FSCN", "FVSSSCN", "HOT", "PLAIN", "VSSDB"})
        EXPECT_EQ(state.find(sid)->get("status") + "/" + Backup(state, sid), "OPEN/NOT ACTIVE") << sid;
    EXPECT_EQ(state.find("FSHUT")->get("status"), "OPEN");
    EXPECT_EQ(PdbModes(state, "COLD"), "PDBRW=READ WRITE;PDBRO=READ ONLY;PDBUP=MIGRATE;PDBMNT=MOUNTED;");

    // Told to leave databases without archive logging alone, the next prepare shuts
    // none down, and its document replaces the metadata that no finish removed.
    machine.Setting(L"OracleSkipNoArchiveLogDB", 1);
    machine.StartProcess(state);
    ASSERT_EQ(machine.Prepare(L"", document, error), S_OK) << util::wide_to_utf8(error);
    for (const char* sid : {"COLD", "FSHUT"})
        EXPECT_TRUE(std::regex_search(util::wide_to_utf8(document), std::regex(std::string("sid=\"") + sid + "\"[^>]* action=\"5\"")))
            << sid;
    EXPECT_THAT(machine.Events(), testing::Not(testing::Contains(testing::StartsWith("shutdown "))));
    EXPECT_THAT(machine.MetaFile(), testing::HasSubstr(util::base64_encode(util::wide_to_utf8(document))));
}

TEST(Cycle, PreparedMachineRestoredFromItsSnapshotFinishesThereAndNoPasswordLeavesTheLibrary)
{
    const std::string osPassword = "Os-Qx9-Pa55w0rd";
    CCycleMachine machine(1);
    machine.Install({"CDB", "HOT", "VSSR", "COLDUP", "COLDOFF"}, {"COLDOFF"});
    machine.StartProcess({Instance("CDB", {{"cdb", "YES"}}, false,
                                   {{"pdb", Pdb("PRW", "READ WRITE")}, {"pdb", Pdb("PRO", "READ ONLY")},
                                    {"pdb", Pdb("PUP", "MIGRATE")}, {"pdb", Pdb("PMNT", "MOUNTED")}}),
                          Instance("HOT", {}, false), Instance("VSSR", {}, false),
                          Instance("COLDUP", {{"log_mode", "NOARCHIVELOG"}}, false),
                          Instance("COLDOFF", {{"log_mode", "NOARCHIVELOG"}}, false)});
    std::wstring document, error;
    std::wstring outputs;
    ASSERT_EQ(machine.Prepare(L"<databases><database sid=\"VSSR\"/></databases>", document, error, L"ops",
                              util::utf8_to_wide(osPassword)),
              S_OK)
        << util::wide_to_utf8(error);
    outputs += document;
    // The credential envelopes keep their shape and carry nothing.
    const std::string envelope = util::base64_encode("<root u=\"\" p=\"\" />\n");
    const std::string meta = machine.MetaFile();
    EXPECT_EQ(meta, "<restore dbPrepareXml=\"" + util::base64_encode(util::wide_to_utf8(document)) + "\" conn=\"" +
                        envelope + "\" os_conn=\"" + envelope + "\" />\n");

    // The snapshot: the server's state and the log folder's metadata, as the
    // restored machine boots them: files in backup mode stop the database at
    // mounted, a container opens without its plugged databases, and the instance
    // of the manually started home stays down.
    ocisim::World snapshot = machine.State();
    EXPECT_EQ(Backup(snapshot, "HOT") + "/" + Backup(snapshot, "CDB") + "/" + Backup(snapshot, "VSSR"),
              "ACTIVE/ACTIVE/NOT ACTIVE");
    EXPECT_EQ(snapshot.find("COLDUP")->get("status") + "/" + snapshot.find("COLDOFF")->get("status"), "DOWN/DOWN");
    snapshot.find("HOT")->set("status", "MOUNTED");
    snapshot.find("CDB")->set("status", "MOUNTED");
    for (ocisim::Record* pdb : snapshot.find("CDB")->records("pdb"))
        pdb->set("open_mode", "MOUNTED");

    ASSERT_EQ(machine.Finish(document, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_FALSE(machine.RestoreRequired());
    machine.Events();

    machine.PutMetaFile(meta);
    machine.StartProcess(snapshot);
    ASSERT_TRUE(machine.RestoreRequired());
    ASSERT_EQ(machine.Restore(error), S_OK) << util::wide_to_utf8(error);
    EXPECT_FALSE(machine.RestoreRequired());
    EXPECT_THAT(machine.Events(),
                ElementsAreArray(Join({
                    Asked("CDB", {"SELECT STATUS FROM V$INSTANCE", "ALTER DATABASE END BACKUP", "ALTER DATABASE OPEN",
                                  "ALTER SYSTEM ARCHIVE LOG CURRENT",
                                  "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PRW'",
                                  "ALTER PLUGGABLE DATABASE \"PRW\" OPEN READ WRITE",
                                  "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PRO'",
                                  "ALTER PLUGGABLE DATABASE \"PRO\" OPEN READ ONLY",
                                  "SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PUP'",
                                  "ALTER PLUGGABLE DATABASE \"PUP\" OPEN UPGRADE"}),
                    Asked("COLDUP", {"error 1034", "startup", "ALTER DATABASE MOUNT", "ALTER DATABASE OPEN", "error 1012"}),
                    Asked("HOT", {"SELECT STATUS FROM V$INSTANCE", "ALTER DATABASE END BACKUP", "ALTER DATABASE OPEN",
                                  "ALTER SYSTEM ARCHIVE LOG CURRENT"}),
                    Asked("VSSR", {"SELECT STATUS FROM V$INSTANCE"}),
                })));
    const ocisim::World state = machine.State();
    for (const char* sid : {"CDB", "HOT", "VSSR", "COLDUP"})
        EXPECT_EQ(state.find(sid)->get("status") + "/" + Backup(state, sid), "OPEN/NOT ACTIVE") << sid;
    EXPECT_EQ(state.find("COLDOFF")->get("status"), "DOWN");
    EXPECT_EQ(PdbModes(state, "CDB"), "PRW=READ WRITE;PRO=READ ONLY;PUP=MIGRATE;PMNT=MOUNTED;");

    // Every byte the library gave out in the whole cycle, in both encodings.
    const std::string given = machine.LogBytes() + meta + util::wide_to_utf8(outputs + machine.Errors());
    for (const std::string& secret : {std::string(kPassword), osPassword}) {
        const std::wstring wide = util::utf8_to_wide(secret);
        const std::string utf16(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
        EXPECT_EQ(given.find(secret), std::string::npos) << secret;
        EXPECT_EQ(given.find(utf16), std::string::npos) << secret;
    }
}
