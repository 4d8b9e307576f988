#include "host/commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#include "host/console.h"
#include "host/inputs.h"
#include "host/library.h"
#include "host/progress.h"
#include "host/summary.h"

namespace host {

namespace {

const wchar_t kPasswordVariable[] = L"ORASNAP_PASSWORD";
const wchar_t kOsPasswordVariable[] = L"ORASNAP_OS_PASSWORD";

const char kDescription[] =
    "Runs one operation of orasnap.dll, loaded as the backup agent loads it: the library beside\n"
    "orasnap.exe, else the first one the ordinary DLL search finds. Documents go to standard output\n"
    "(or --out FILE); document inputs come from files, or from standard input for '-'.";

const char kFooter[] =
    "Exit codes: 0 the library returned S_OK; 1 it failed, its error text is on standard error;\n"
    "2 bad options or an input file that cannot be read; 3 orasnap.dll cannot be loaded.\n"
    "Passwords never go on the command line: --login USER takes the password from the variable\n"
    "ORASNAP_PASSWORD when it is set, else asks for it at the console without echo; --os-login\n"
    "USER does the same with ORASNAP_OS_PASSWORD.\n"
    "Example: orasnap explore --no-logs --out inventory.xml";

// What one call of the library gave back.
struct SOutcome {
    HRESULT status = E_FAIL;
    double seconds = 0;
    std::wstring result;
    std::wstring error;
};

// Everything the subcommands' options can hold.
struct SOptions {
    std::string logName = "orasnap-cli.log";
    std::string out;
    std::string dbs;
    std::string config;
    std::string logs;
    std::string login;
    std::string osLogin;
    std::string home;
    std::string sid;
    std::string usn;
    std::string lastRecId;
    bool noLogs = false;
    int32_t olderThan = 0;
    uint64_t keepSize = 0;
};

std::string format_seconds(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f s", seconds);
    return text;
}

class CCommandLine {
public:
    CCommandLine();
    int Run(const std::vector<std::string>& args);

private:
    CLI::App* Add(const char* name, const char* description, const char* example, std::function<int()> handler);
    void AddLogin(CLI::App* command);
    void AddOut(CLI::App* command);
    void AddHomeAndSid(CLI::App* command);

    // orasnap.dll, loaded and initialised with the log name on first use.
    const CLibrary& Library();
    // Stops the library, as the agent does when it is done, if it was loaded.
    int StopLibrary(int exitCode);
    // Runs `call` with its progress line; it gets the cell for the error text.
    SOutcome Call(const std::function<HRESULT(std::wstring& result, wchar_t** errorText)>& call);
    SOutcome CallForText(const std::function<HRESULT(wchar_t** result, wchar_t** errorText)>& call);
    SOutcome CallForFlag(const std::function<HRESULT(bool* flag, wchar_t** errorText)>& call);
    // Hands the outcome to the operator: the result to `output`, the error text and a
    // summary line with `detail` to standard error. Returns the exit code.
    int Report(const SOutcome& outcome, COutput& output, const std::wstring& detail = std::wstring());

    // What OracleShouldSkipVssWriter says, right after the prepare, of the SIDs it prepared.
    std::wstring SkippedWriters(const std::wstring& prepared);

    int Explore();
    int VssCheck();
    int SkipWriter();
    int GatherVssInfo();
    int Prepare();
    int Finish();
    int BackupLogs();
    int EnumLogs();
    int RemoveLogs();
    int DeleteLogs();
    int RestoreRequired();
    int Restore();
    int LogsFolder();
    int Test();

    CLI::App app_;
    SOptions options_;
    std::map<const CLI::App*, std::function<int()>> handlers_;
    CLI::Option* olderThan_ = nullptr;
    std::string command_;
    std::unique_ptr<CLibrary> library_;
};

CCommandLine::CCommandLine() : app_(kDescription, "orasnap")
{
    app_.footer(kFooter);
    app_.require_subcommand(1);
    app_.add_option("--log", options_.logName, "Name of the library's log file, as the agent gives it")
        ->capture_default_str();

    CLI::App* explore = Add("explore", "OracleExploreInstances: the inventory of homes, instances and databases",
                            "orasnap explore --login system --out inventory.xml", [this] { return Explore(); });
    explore->add_flag("--no-logs", options_.noLogs, "Leave out the archived logs and the parameter files' content");
    explore->add_option("--config", options_.config, "Explore configuration document (last log record per SID)");
    AddLogin(explore);
    AddOut(explore);

    Add("vss-check", "OracleCheckVssFunctionality: whether a VSS snapshot suits the databases (true or false)",
        "orasnap vss-check", [this] { return VssCheck(); });

    CLI::App* skip = Add("skip-writer",
                         "OracleShouldSkipVssWriter: whether the VSS writer of a SID must be left out (true or "
                         "false). The library learns this from an explore, so one runs first, without logs.",
                         "orasnap skip-writer --sid ORCL", [this] { return SkipWriter(); });
    skip->add_option("--sid", options_.sid, "The instance's SID")->required();
    AddLogin(skip);

    AddOut(Add("gather-vss-info", "OracleGatherVssInfo: the entries document of the VSS writers",
               "orasnap gather-vss-info", [this] { return GatherVssInfo(); }));

    CLI::App* prepare = Add("prepare",
                            "OraclePrepareDbsForBackup: puts every database into its state for the snapshot and "
                            "prints the prepare document (also kept as OracleMeta.xml in the log folder); the "
                            "summary names the VSS writers OracleShouldSkipVssWriter then leaves out",
                            "orasnap prepare --dbs writers.xml --login system --out prepare.xml",
                            [this] { return Prepare(); });
    prepare->add_option("--dbs", options_.dbs, "Document of the enabled VSS writers, or - for standard input")
        ->required();
    prepare->add_option("--config", options_.config, "Explore configuration document");
    AddLogin(prepare);
    prepare->add_option("--os-login", options_.osLogin,
                        "Windows account the restore impersonates; its password: ORASNAP_OS_PASSWORD or the console");
    AddOut(prepare);

    CLI::App* finish = Add("finish", "OracleFinishDbsBackup: undoes the prepare after the snapshot",
                           "orasnap finish --dbs prepare.xml --login system", [this] { return Finish(); });
    finish->add_option("--dbs", options_.dbs, "The prepare document, or - for standard input")->required();
    AddLogin(finish);

    CLI::App* backup = Add("backup-logs",
                           "OracleBackupLogs: hands over the archived logs above a record id, with their "
                           "descriptions, as a logs document",
                           "orasnap backup-logs --home C:\\oracle\\product\\19.0.0\\dbhome_1 --sid ORCL "
                           "--last-rec-id 40 --out logs.xml",
                           [this] { return BackupLogs(); });
    AddHomeAndSid(backup);
    backup->add_option("--usn", options_.usn, "The agent's sequence number, kept in each description");
    backup->add_option("--last-rec-id", options_.lastRecId, "Record id of the last log handed over before");
    AddLogin(backup);
    AddOut(backup);

    AddOut(Add("enum-logs", "OracleEnumLogs: the logs document of what lies in the log folder",
               "orasnap enum-logs", [this] { return EnumLogs(); }));

    CLI::App* remove = Add("remove-logs", "OracleRemoveLogsInTemp: removes the copies and descriptions of a logs document",
                           "orasnap remove-logs --logs logs.xml", [this] { return RemoveLogs(); });
    remove->add_option("--logs", options_.logs, "The logs document, or - for standard input")->required();

    CLI::App* remove_old = Add("delete-logs",
                               "OracleDeleteLogsByTime or OracleDeleteLogsBySize: has Oracle delete archived logs",
                               "orasnap delete-logs --home C:\\oracle\\product\\19.0.0\\dbhome_1 --sid ORCL "
                               "--older-than 1440",
                               [this] { return DeleteLogs(); });
    AddHomeAndSid(remove_old);
    CLI::Option_group* limit = remove_old->add_option_group("limit", "Which logs go (exactly one)");
    olderThan_ = limit->add_option("--older-than", options_.olderThan, "MINUTES: logs older than this");
    limit->add_option("--keep-size", options_.keepSize, "BYTES: the oldest logs beyond this total size");
    limit->require_option(1);
    AddLogin(remove_old);

    Add("restore-required", "OracleIsRestoreRequired: whether this machine was restored from a snapshot (true or false)",
        "orasnap restore-required", [this] { return RestoreRequired(); });
    Add("restore", "OracleDoRestore: brings the databases of a restored machine back", "orasnap restore",
        [this] { return Restore(); });
    Add("logs-folder", "OracleGetLogsFolder: the log folder of the configuration", "orasnap logs-folder",
        [this] { return LogsFolder(); });
    Add("test", "OracleTest: initialises the library, runs its self-test and stops it", "orasnap test",
        [this] { return Test(); });
}

CLI::App* CCommandLine::Add(const char* name, const char* description, const char* example,
                            std::function<int()> handler)
{
    CLI::App* command = app_.add_subcommand(name, description);
    command->footer(std::string("Example: ") + example);
    handlers_[command] = std::move(handler);
    return command;
}

void CCommandLine::AddLogin(CLI::App* command)
{
    command->add_option("--login", options_.login,
                        "Database user (default: operating system authentication); its password: "
                        "ORASNAP_PASSWORD or the console");
}

void CCommandLine::AddOut(CLI::App* command)
{
    command->add_option("--out", options_.out, "File for the document instead of standard output");
}

void CCommandLine::AddHomeAndSid(CLI::App* command)
{
    command->add_option("--home", options_.home, "The Oracle home of the instance")->required();
    command->add_option("--sid", options_.sid, "The instance's SID")->required();
}

int CCommandLine::Run(const std::vector<std::string>& args)
{
    std::vector<const char*> argv;
    for (const std::string& arg : args)
        argv.push_back(arg.c_str());
    try {
        app_.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError& error) {
        // A misspelt subcommand is left over as an extra argument: name it instead of
        // saying only that a subcommand is missing.
        if (app_.get_subcommands().empty() && !app_.remaining().empty()) {
            std::cerr << "orasnap: unknown subcommand '" << app_.remaining().front()
                      << "'\nRun with --help for the list of subcommands.\n";
            return kExitUsage;
        }
        return app_.exit(error) == 0 ? kExitOk : kExitUsage;
    }
    const CLI::App* chosen = app_.get_subcommands().front();
    command_ = chosen->get_name();
    try {
        return StopLibrary(handlers_.at(chosen)());
    } catch (const CUsageError& error) {
        std::cerr << "orasnap " << command_ << ": " << error.what() << "\nRun with --help for more information.\n";
        return kExitUsage;
    } catch (const CLibraryError& error) {
        std::cerr << "orasnap " << command_ << ": " << error.what() << "\n";
        return kExitNoLibrary;
    } catch (const std::exception& error) {
        std::cerr << "orasnap " << command_ << ": " << error.what() << "\n";
        return kExitFailed;
    }
}

const CLibrary& CCommandLine::Library()
{
    if (library_)
        return *library_;
    library_ = std::make_unique<CLibrary>();
    const std::wstring logName = Utf8ToWide(options_.logName);
    wchar_t* errorText = nullptr;
    if (FAILED(ORASNAP_ENTRY(*library_, OracleVssInitLib)(logName.c_str(), &errorText)))
        throw std::runtime_error("OracleVssInitLib failed: " + WideToUtf8(library_->Take(errorText)));
    return *library_;
}

int CCommandLine::StopLibrary(int exitCode)
{
    if (!library_)
        return exitCode;
    wchar_t* errorText = nullptr;
    if (SUCCEEDED(ORASNAP_ENTRY(*library_, OracleVssStopLib)(&errorText)))
        return exitCode;
    throw std::runtime_error("OracleVssStopLib failed: " + WideToUtf8(library_->Take(errorText)));
}

SOutcome CCommandLine::Call(const std::function<HRESULT(std::wstring& result, wchar_t** errorText)>& call)
{
    const CLibrary& library = Library();
    SOutcome outcome;
    const SCallTiming timing = RunWithProgress(Utf8ToWide(command_), [&] {
        wchar_t* errorText = nullptr;
        const HRESULT status = call(outcome.result, &errorText);
        outcome.error = library.Take(errorText);
        return status;
    });
    outcome.status = timing.status;
    outcome.seconds = timing.seconds;
    return outcome;
}

SOutcome CCommandLine::CallForText(const std::function<HRESULT(wchar_t** result, wchar_t** errorText)>& call)
{
    return Call([&](std::wstring& result, wchar_t** errorText) {
        wchar_t* text = nullptr;
        const HRESULT status = call(&text, errorText);
        result = Library().Take(text);
        return status;
    });
}

SOutcome CCommandLine::CallForFlag(const std::function<HRESULT(bool* flag, wchar_t** errorText)>& call)
{
    return Call([&](std::wstring& result, wchar_t** errorText) {
        bool flag = false;
        const HRESULT status = call(&flag, errorText);
        result = flag ? L"true" : L"false";
        return status;
    });
}

int CCommandLine::Report(const SOutcome& outcome, COutput& output, const std::wstring& detail)
{
    const bool succeeded = SUCCEEDED(outcome.status);
    if (succeeded && !outcome.result.empty())
        output.Put(outcome.result);
    if (!succeeded) {
        output.Discard();
        Write(STD_ERROR_HANDLE, outcome.error.empty() || outcome.error.back() == L'\n' ? outcome.error
                                                                                         : outcome.error + L"\n");
    }
    std::string summary = command_ + ": " + (succeeded ? "S_OK" : "E_FAIL") + " after " + format_seconds(outcome.seconds);
    if (succeeded && !detail.empty())
        summary += "; " + WideToUtf8(detail);
    Write(STD_ERROR_HANDLE, Utf8ToWide(summary) + L"\n");
    return succeeded ? kExitOk : kExitFailed;
}

int CCommandLine::Explore()
{
    const std::wstring config = ReadDocument(options_.config, "--config");
    const std::wstring login = Utf8ToWide(options_.login);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    COutput output(options_.out);
    const auto explore = ORASNAP_ENTRY(Library(), OracleExploreInstances);
    const SOutcome outcome = CallForText([&](wchar_t** result, wchar_t** errorText) {
        return explore(!options_.noLogs, login.c_str(), password.c_str(), config.c_str(), result, errorText);
    });
    return Report(outcome, output);
}

int CCommandLine::VssCheck()
{
    COutput output("");
    return Report(CallForFlag(ORASNAP_ENTRY(Library(), OracleCheckVssFunctionality)), output);
}

int CCommandLine::SkipWriter()
{
    const std::wstring sid = Utf8ToWide(options_.sid);
    const std::wstring login = Utf8ToWide(options_.login);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    COutput output("");
    const auto explore = ORASNAP_ENTRY(Library(), OracleExploreInstances);
    const auto skip = ORASNAP_ENTRY(Library(), OracleShouldSkipVssWriter);
    const SOutcome outcome = Call([&](std::wstring& result, wchar_t** errorText) {
        wchar_t* inventory = nullptr;
        const HRESULT explored = explore(false, login.c_str(), password.c_str(), L"", &inventory, errorText);
        Library().Take(inventory);
        if (FAILED(explored))
            return explored;
        bool skipped = false;
        const HRESULT status = skip(sid.c_str(), &skipped, errorText);
        result = skipped ? L"true" : L"false";
        return status;
    });
    return Report(outcome, output);
}

int CCommandLine::GatherVssInfo()
{
    COutput output(options_.out);
    const auto gather = ORASNAP_ENTRY(Library(), OracleGatherVssInfo);
    const SOutcome outcome = CallForText(
        [&](wchar_t** result, wchar_t** errorText) { return gather(nullptr, nullptr, result, errorText); });
    return Report(outcome, output, CountSummary(outcome.result, "entries"));
}

int CCommandLine::Prepare()
{
    const std::wstring dbs = ReadDocument(options_.dbs, "--dbs");
    const std::wstring config = ReadDocument(options_.config, "--config");
    const std::wstring login = Utf8ToWide(options_.login);
    const std::wstring osLogin = Utf8ToWide(options_.osLogin);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    const CSecret osPassword(PasswordFor(options_.osLogin, kOsPasswordVariable, "--os-login"));
    COutput output(options_.out);
    const auto prepare = ORASNAP_ENTRY(Library(), OraclePrepareDbsForBackup);
    const SOutcome outcome = CallForText([&](wchar_t** result, wchar_t** errorText) {
        return prepare(dbs.c_str(), config.c_str(), login.c_str(), password.c_str(), osLogin.c_str(),
                       osPassword.c_str(), result, errorText);
    });
    return Report(outcome, output, PrepareSummary(outcome.result) + SkippedWriters(outcome.result));
}

std::wstring CCommandLine::SkippedWriters(const std::wstring& prepared)
{
    const auto skip = ORASNAP_ENTRY(Library(), OracleShouldSkipVssWriter);
    std::wstring skipped;
    for (const std::wstring& sid : PreparedSids(prepared)) {
        bool isSkipped = false;
        wchar_t* errorText = nullptr;
        const HRESULT status = skip(sid.c_str(), &isSkipped, &errorText);
        Library().Take(errorText);
        if (SUCCEEDED(status) && isSkipped)
            skipped += (skipped.empty() ? L"" : L", ") + sid;
    }
    return L"; VSS writers to leave out: " + (skipped.empty() ? L"none" : skipped);
}

int CCommandLine::Finish()
{
    const std::wstring dbs = ReadDocument(options_.dbs, "--dbs");
    const std::wstring login = Utf8ToWide(options_.login);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    COutput output("");
    const auto finish = ORASNAP_ENTRY(Library(), OracleFinishDbsBackup);
    const SOutcome outcome = Call([&](std::wstring&, wchar_t** errorText) {
        return finish(dbs.c_str(), login.c_str(), password.c_str(), errorText);
    });
    return Report(outcome, output, CountSummary(dbs, "databases"));
}

int CCommandLine::BackupLogs()
{
    const std::wstring home = Utf8ToWide(options_.home);
    const std::wstring sid = Utf8ToWide(options_.sid);
    const std::wstring usn = Utf8ToWide(options_.usn);
    const std::wstring lastRecId = Utf8ToWide(options_.lastRecId);
    const std::wstring login = Utf8ToWide(options_.login);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    COutput output(options_.out);
    const auto backup = ORASNAP_ENTRY(Library(), OracleBackupLogs);
    const SOutcome outcome = CallForText([&](wchar_t** result, wchar_t** errorText) {
        return backup(home.c_str(), sid.c_str(), usn.c_str(), lastRecId.c_str(), login.c_str(), password.c_str(),
                      result, errorText);
    });
    return Report(outcome, output, LogsSummary(outcome.result));
}

int CCommandLine::EnumLogs()
{
    COutput output(options_.out);
    const SOutcome outcome = CallForText(ORASNAP_ENTRY(Library(), OracleEnumLogs));
    return Report(outcome, output, LogsSummary(outcome.result));
}

int CCommandLine::RemoveLogs()
{
    const std::wstring logs = ReadDocument(options_.logs, "--logs");
    COutput output("");
    const auto remove = ORASNAP_ENTRY(Library(), OracleRemoveLogsInTemp);
    const SOutcome outcome =
        Call([&](std::wstring&, wchar_t** errorText) { return remove(logs.c_str(), errorText); });
    return Report(outcome, output, LogsSummary(logs));
}

int CCommandLine::DeleteLogs()
{
    const std::wstring home = Utf8ToWide(options_.home);
    const std::wstring sid = Utf8ToWide(options_.sid);
    const std::wstring login = Utf8ToWide(options_.login);
    const CSecret password(PasswordFor(options_.login, kPasswordVariable, "--login"));
    const bool byTime = olderThan_->count() > 0;
    COutput output("");
    const auto byTimeCall = ORASNAP_ENTRY(Library(), OracleDeleteLogsByTime);
    const auto bySizeCall = ORASNAP_ENTRY(Library(), OracleDeleteLogsBySize);
    const SOutcome outcome = Call([&](std::wstring&, wchar_t** errorText) {
        return byTime ? byTimeCall(home.c_str(), sid.c_str(), options_.olderThan, login.c_str(), password.c_str(),
                                   errorText)
                      : bySizeCall(home.c_str(), sid.c_str(), options_.keepSize, login.c_str(), password.c_str(),
                                   errorText);
    });
    return Report(outcome, output);
}

int CCommandLine::RestoreRequired()
{
    COutput output("");
    return Report(CallForFlag(ORASNAP_ENTRY(Library(), OracleIsRestoreRequired)), output);
}

int CCommandLine::Restore()
{
    COutput output("");
    const auto restore = ORASNAP_ENTRY(Library(), OracleDoRestore);
    return Report(Call([&](std::wstring&, wchar_t** errorText) { return restore(errorText); }), output);
}

int CCommandLine::LogsFolder()
{
    COutput output("");
    return Report(CallForText(ORASNAP_ENTRY(Library(), OracleGetLogsFolder)), output);
}

int CCommandLine::Test()
{
    const std::wstring logName = Utf8ToWide(options_.logName);
    COutput output("");
    const auto test = ORASNAP_ENTRY(Library(), OracleTest);
    return Report(Call([&](std::wstring&, wchar_t** errorText) {
                      return test(nullptr, nullptr, logName.c_str(), errorText);
                  }),
                  output);
}

} // namespace

int RunCommandLine(const std::vector<std::string>& args)
{
    return CCommandLine().Run(args);
}

} // namespace host
