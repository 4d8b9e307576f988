// Full backup cycles over ten simulated databases, with faults drawn at random
// for each cycle from the simulated client's repertoire. After every cycle it
// checks what the agent relies on:
//   - every call returned within its deadline and failed only with a text;
//   - every database the prepare switched to backup mode or shut down is back
//     after the finish, unless the finish logged that database's failure;
//   - no password in any document, error text, log line or file the cycle left;
//   - no file left in the log folder that no document names.
// A crash ends the run: it is reported as a violation, with the closing line.
//
// Usage: soak.exe [cycles] [seed]

#include "common/strings/strings.h"
#include "ocisim/scenario_builder.h"
#include "orasnap/orasnap.h"
#include "support/ocisim_world.h"
#include "support/orasnap_library.h"
#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr int kDatabases = 10;
constexpr int kTimeoutSec = 1;
// What a call may take besides its hung round trips, and what each of those
// may add: the timeout and the end of the thread that hung.
constexpr double kCallAllowanceSec = 4.0;
constexpr double kPerHangSec = kTimeoutSec + 0.5;
const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";
const wchar_t kLogin[] = L"soak";
const wchar_t kPassword[] = L"Soak-Db-Secret-7Qz";
const wchar_t kOsLogin[] = L"soakos";
const wchar_t kOsPassword[] = L"Soak-Os-Secret-4Kx";

int g_cycle = 0;
int g_faults = 0;
std::vector<std::string> g_violations;

void closing_line()
{
    std::printf("soak: %d cycles, %d faults, %zu violations\n", g_cycle, g_faults, g_violations.size());
    std::fflush(stdout);
}

void violation(const std::string& what)
{
    g_violations.push_back(what);
    std::printf("violation: cycle %d: %s\n", g_cycle, what.c_str());
    std::fflush(stdout);
}

LONG WINAPI on_crash(EXCEPTION_POINTERS* info)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%08lX", info->ExceptionRecord->ExceptionCode);
    violation(std::string("the process crashed with exception ") + code);
    closing_line();
    ExitProcess(3);
}

bool archive_logging(int index)
{
    return index % 5 != 4;
}

std::string sid_of(int index)
{
    char sid[8];
    std::snprintf(sid, sizeof sid, "DB%02d", index + 1);
    return sid;
}

// One fault of the cycle, as the scenario writes it; `hangs` is how many round
// trips it may hang.
struct SFault {
    std::string sid;
    ocisim::Fields fields;
    int hangs = 0;
    std::string Describe() const
    {
        std::string text = sid;
        for (const auto& [key, value] : fields)
            text += " " + key + "=" + value;
        return text;
    }
};

struct SCall {
    std::string name;
    HRESULT status = E_FAIL;
    std::wstring result;
    std::wstring error;
    double seconds = 0.0;
};

class CSoak {
public:
    explicit CSoak(unsigned seed) : random_(seed), logs_(root_.file(L"logs"))
    {
        CreateDirectoryW(logs_.c_str(), nullptr);
        registry_.set_string(kConfigKey, L"LogDirectory", root_.path());
        registry_.set_string(kConfigKey, L"OracleTempLogPath", logs_);
        registry_.set_dword(kConfigKey, L"OracleConnectionTimeout", kTimeoutSec);
        registry_.set_dword(kConfigKey, L"DeleteOracleAbsentLogFiles", 1);
        // The sandboxed machine needs a name of its own for the inventory.
        registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Hostname", L"soakhost");
        registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Domain", L"soak.test");
        registry_.set_string(L"SOFTWARE\\ORACLE\\KEY_SoakHome", L"ORACLE_HOME", home_);
        registry_.set_string(L"SOFTWARE\\ORACLE\\KEY_SoakHome", L"ORACLE_HOME_NAME", L"SoakHome");
        ocisim::World world;
        for (int db = 0; db < kDatabases; ++db) {
            const std::string sid = sid_of(db);
            registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\OracleService" + util::utf8_to_wide(sid),
                                 L"ImagePath", home_ + L"\\bin\\oracle.exe " + util::utf8_to_wide(sid), REG_EXPAND_SZ);
            ocisim::Instance& instance =
                ocisim::add_typical_database(world, sid, root_.file_utf8(sid));
            instance.add("user", {{"name", util::wide_to_utf8(kLogin)}, {"password", util::wide_to_utf8(kPassword)},
                                  {"sysdba", "yes"}});
            // Two databases run without archive logging: the prepare shuts them
            // down, and they have no archived logs to hand over.
            if (!archive_logging(db))
                instance.set("log_mode", "NOARCHIVELOG");
            ocisim::create_log_files(instance);
            lastRecIds_.push_back(L"");
        }
        world_.set_world(world);
        scenario_ = world_.folder().file_utf8("scenario.txt");
        wchar_t* error = nullptr;
        ORASNAP_EXPORT(library_, OracleVssInitLib)(L"soak.log", &error);
        library_.take(error);
    }

    void Cycle()
    {
        logStart_ = LogText().size();
        std::vector<SFault> faults = g_cycle == 0 ? std::vector<SFault>{} : DrawFaults();
        const bool folderBroken = g_cycle > 0 && Chance(10);
        InjectFaults(faults);
        if (folderBroken)
            BreakLogFolder();
        g_faults += static_cast<int>(faults.size()) + (folderBroken ? 1 : 0);
        int hangs = 0;
        for (const SFault& fault : faults)
            hangs += fault.hangs;
        const double allowed = kCallAllowanceSec + hangs * kPerHangSec;
        context_.clear();
        for (const SFault& fault : faults)
            context_ += " [" + fault.Describe() + "]";
        if (folderBroken)
            context_ += " [log folder not writable]";
        const std::string& context = context_;

        std::vector<SCall> calls;
        calls.push_back(Run("OracleExploreInstances", allowed, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(library_, OracleExploreInstances)(true, kLogin, kPassword, L"", result, error);
        }));
        const SCall& prepare = Run("OraclePrepareDbsForBackup", allowed, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(library_, OraclePrepareDbsForBackup)(L"<databases><database sid=\"DB03\"/></databases>",
                                                                       L"", kLogin, kPassword, kOsLogin, kOsPassword,
                                                                       result, error);
        });
        calls.push_back(prepare);
        calls.push_back(ReadFileCall("OracleMeta.xml", logs_ + L"\\OracleMeta.xml"));
        if (prepare.status == S_OK) {
            const std::wstring document = prepare.result;
            calls.push_back(Run("OracleFinishDbsBackup", allowed, [&](wchar_t**, wchar_t** error) {
                return ORASNAP_EXPORT(library_, OracleFinishDbsBackup)(document.c_str(), kLogin, kPassword, error);
            }));
            CheckDatabasesBack(document, context);
        }
        std::vector<std::wstring> logDocuments;
        for (int db = 0; db < kDatabases; ++db)
            if (archive_logging(db))
                calls.push_back(BackupLogs(db, allowed, logDocuments));
        if (folderBroken)
            RepairLogFolder();
        for (const std::wstring& document : logDocuments)
            calls.push_back(Run("OracleRemoveLogsInTemp", allowed, [&](wchar_t**, wchar_t** error) {
                return ORASNAP_EXPORT(library_, OracleRemoveLogsInTemp)(document.c_str(), error);
            }));
        const SCall& enumerated = Run("OracleEnumLogs", allowed, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(library_, OracleEnumLogs)(result, error);
        });
        calls.push_back(enumerated);
        if (enumerated.status == S_OK)
            logDocuments.push_back(enumerated.result);
        for (int db = 0; db < kDatabases; ++db)
            if (archive_logging(db))
                calls.push_back(Run("OracleDeleteLogsByTime " + sid_of(db), allowed, [&](wchar_t**, wchar_t** error) {
                return ORASNAP_EXPORT(library_, OracleDeleteLogsByTime)(home_.c_str(),
                                                                       util::utf8_to_wide(sid_of(db)).c_str(), 0,
                                                                       kLogin, kPassword, error);
            }));

        int failed = 0;
        for (const SCall& call : calls) {
            CheckCall(call, allowed, context);
            failed += call.status == S_OK ? 0 : 1;
            if (call.status != S_OK && faults.empty() && !folderBroken)
                std::printf("  %s failed without a fault: %s\n", call.name.c_str(), util::wide_to_utf8(call.error).c_str());
        }
        const std::vector<std::string> journal = world_.take_journal();
        const auto fired = std::count_if(journal.begin(), journal.end(),
                                         [](const std::string& line) { return line.rfind("fault ", 0) == 0; });
        std::printf("cycle %d:%s %d fired; %d of %zu calls failed, %zu log documents\n", g_cycle,
                    context.empty() ? " no faults;" : (context + ";").c_str(), static_cast<int>(fired), failed,
                    calls.size(), logDocuments.size());
        CheckLogFolder(logDocuments, context);
        CheckSecrets(calls, context);
        if (g_cycle == 0)
            LearnStatements(journal);
    }

private:
    bool Chance(int percent) { return std::uniform_int_distribution<int>(0, 99)(random_) < percent; }
    template <typename T>
    const T& Pick(const std::vector<T>& items)
    {
        return items[std::uniform_int_distribution<size_t>(0, items.size() - 1)(random_)];
    }

    // One to three faults on databases drawn at random; a hang strikes once or
    // twice, so that a cycle's cost stays bounded.
    std::vector<SFault> DrawFaults()
    {
        std::vector<SFault> faults;
        const int count = std::uniform_int_distribution<int>(1, 3)(random_);
        for (int i = 0; i < count; ++i) {
            SFault fault;
            fault.sid = sid_of(std::uniform_int_distribution<int>(0, kDatabases - 1)(random_));
            const std::string statement = Pick(statements_);
            switch (std::uniform_int_distribution<int>(0, 7)(random_)) {
            case 0: fault.fields = {{"kind", "hang"}, {"at", "session_begin"}}; break;
            case 1: fault.fields = {{"kind", "hang"}, {"at", "status"}}; break;
            case 2: fault.fields = {{"kind", "hang"}, {"at", "sql"}, {"text", Pick(boundedStatements_)}}; break;
            case 3: fault.fields = {{"kind", "av"}, {"at", Pick<std::string>({"session_begin", "status"})}}; break;
            case 4: fault.fields = {{"kind", "av"}, {"at", "sql"}, {"text", statement}}; break;
            case 5:
                fault.fields = {{"kind", "error"}, {"at", "sql"}, {"text", statement},
                                {"code", Pick<std::string>({"1013", "3113", "600", "1034", "19504"})}};
                break;
            case 6: fault.fields = {{"kind", "error"}, {"at", "attach"}, {"code", "12560"}}; break;
            default: fault.fields = {{"kind", "fetch_fail"}, {"at", "sql"}, {"text", statement}}; break;
            }
            const std::string times = Pick<std::string>({"1", "2"});
            fault.fields["times"] = times;
            if (fault.fields["kind"] == "hang")
                fault.hangs = std::stoi(times);
            faults.push_back(fault);
        }
        return faults;
    }

    void InjectFaults(const std::vector<SFault>& faults)
    {
        ocisim::World world = ocisim::read_state(scenario_);
        for (ocisim::Instance& instance : world.instances())
            for (const char* kind : {"hang", "av", "error", "fetch_fail"})
                instance.remove("fault", "kind", kind);
        for (const SFault& fault : faults)
            world.find(fault.sid)->add("fault", fault.fields);
        ocisim::write_state(scenario_, world);
    }

    // The log folder becomes a file: nothing can be written into it.
    void BreakLogFolder()
    {
        MoveFileW(logs_.c_str(), (logs_ + L".away").c_str());
        CloseHandle(CreateFileW(logs_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    void RepairLogFolder()
    {
        DeleteFileW(logs_.c_str());
        MoveFileW((logs_ + L".away").c_str(), logs_.c_str());
    }

    // Runs an export on a thread of its own, so that a hung call is reported
    // instead of holding the soak for ever.
    SCall Run(const std::string& name, double allowed,
              const std::function<HRESULT(wchar_t**, wchar_t**)>& call)
    {
        const auto start = std::chrono::steady_clock::now();
        test::export_call_t done;
        if (!test::call_with_deadline(library_, static_cast<DWORD>(allowed * 3000) + 10000, call, done)) {
            violation(name + " hangs;" + context_);
            closing_line();
            ExitProcess(4);
        }
        SCall made;
        made.name = name;
        made.status = done.status;
        made.result = done.result;
        made.error = done.error;
        made.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return made;
    }

    SCall ReadFileCall(const std::string& name, const std::wstring& path)
    {
        SCall read;
        read.name = name;
        read.status = S_OK;
        read.result = util::utf8_to_wide(test::read_file_text(path));
        return read;
    }

    SCall BackupLogs(int db, double allowed, std::vector<std::wstring>& documents)
    {
        const std::wstring sid = util::utf8_to_wide(sid_of(db));
        SCall call = Run("OracleBackupLogs " + sid_of(db), allowed, [&](wchar_t** result, wchar_t** error) {
            return ORASNAP_EXPORT(library_, OracleBackupLogs)(home_.c_str(), sid.c_str(), L"usn-soak",
                                                              lastRecIds_[db].c_str(), kLogin, kPassword, result,
                                                              error);
        });
        if (call.status == S_OK) {
            documents.push_back(call.result);
            const std::wregex recId(L"recId=\"([0-9]+)\"");
            for (std::wsregex_iterator it(call.result.begin(), call.result.end(), recId), end; it != end; ++it)
                if (lastRecIds_[db].empty() || std::stoll((*it)[1].str()) > std::stoll(lastRecIds_[db]))
                    lastRecIds_[db] = (*it)[1].str();
        }
        return call;
    }

    void CheckCall(const SCall& call, double allowed, const std::string& context)
    {
        if (call.seconds > allowed)
            violation(call.name + " took " + std::to_string(call.seconds) + " s, allowed " + std::to_string(allowed) +
                      " s;" + context);
        if (call.status != S_OK && (call.status != E_FAIL || call.error.empty()))
            violation(call.name + " failed without a text;" + context);
    }

    // Each database the prepare switched to backup mode or shut down must be
    // back, unless the finish logged that database's failure.
    void CheckDatabasesBack(const std::wstring& document, const std::string& context)
    {
        const std::string finishLog = NewLog();
        const ocisim::World world = ocisim::read_state(scenario_);
        const std::wregex entry(L"<database sid=\"([^\"]+)\"[^>]* action=\"([0-9])\"");
        for (std::wsregex_iterator it(document.begin(), document.end(), entry), end; it != end; ++it) {
            const std::string sid = util::wide_to_utf8((*it)[1].str());
            const int action = std::stoi((*it)[2].str());
            // A failed startup is logged as a warning of its own, and the finish goes on.
            if (finishLog.find("Failed to finish db backup. Sid: " + sid) != std::string::npos ||
                finishLog.find("Failed to startup db: " + sid) != std::string::npos)
                continue;
            const ocisim::Instance* instance = world.find(sid);
            bool inBackup = false;
            for (const ocisim::Record* file : instance->records("datafile"))
                inBackup = inBackup || file->get("backup") == "ACTIVE";
            if (action == 2 && inBackup)
                violation(sid + " is still in backup mode after the finish;" + context);
            if (action == 3 && instance->get("status") != "OPEN")
                violation(sid + " stands " + instance->get("status") + " after the finish;" + context);
        }
    }

    // Every file in the log folder is named by one of the cycle's documents.
    void CheckLogFolder(const std::vector<std::wstring>& documents, const std::string& context)
    {
        std::error_code failed;
        for (const auto& file : std::filesystem::directory_iterator(logs_, failed)) {
            const std::wstring path = logs_ + L"\\" + file.path().filename().wstring();
            const bool named = std::any_of(documents.begin(), documents.end(), [&](const std::wstring& document) {
                return document.find(L"\"" + path + L"\"") != std::wstring::npos;
            });
            if (!named)
                violation("the log folder holds " + util::wide_to_utf8(path) + ", named by no document;" + context);
        }
    }

    void CheckSecrets(const std::vector<SCall>& calls, const std::string& context)
    {
        std::vector<std::pair<std::string, std::string>> outputs = {{"the log", NewLog()}};
        for (const SCall& call : calls)
            outputs.push_back({call.name, util::wide_to_utf8(call.result + L"\n" + call.error)});
        for (const std::wstring& secret : {std::wstring(kPassword), std::wstring(kOsPassword)}) {
            const std::string utf8 = util::wide_to_utf8(secret);
            const std::string utf16(reinterpret_cast<const char*>(secret.data()), secret.size() * sizeof(wchar_t));
            for (const auto& [where, bytes] : outputs)
                if (bytes.find(utf8) != std::string::npos || bytes.find(utf16) != std::string::npos)
                    violation(where + " shows a password;" + context);
        }
    }

    // The statements a clean cycle ran are the ones the faults strike, each by
    // the part of its text that doesn't change from call to call: up to the
    // first quote, and past the BEGIN of a block (the journal writes its line
    // feeds as \n).
    void LearnStatements(const std::vector<std::string>& journal)
    {
        std::set<std::string> seen;
        for (const std::string& line : journal) {
            if (line.rfind("sql sid=", 0) != 0)
                continue;
            std::string text = line.substr(line.find(" text=") + 6);
            if (text.rfind("BEGIN\\n", 0) == 0)
                text = text.substr(7);
            text = text.substr(0, std::min({text.find("\\n"), text.find("\\t"), text.find('\'')}));
            text.erase(text.find_last_not_of(" (") + 1);
            text.erase(0, text.find_first_not_of(' '));
            if (!text.empty())
                seen.insert(text);
        }
        statements_.assign(seen.begin(), seen.end());
        // Starting, opening and closing a database may rightly take minutes, so
        // those statements are not bounded, and a hang there is no fault to draw.
        std::copy_if(statements_.begin(), statements_.end(), std::back_inserter(boundedStatements_),
                     [](const std::string& text) {
                         return text.rfind("ALTER DATABASE MOUNT", 0) != 0 && text.rfind("ALTER DATABASE OPEN", 0) != 0 &&
                                text.rfind("ALTER DATABASE CLOSE", 0) != 0 && text.rfind("ALTER DATABASE DISMOUNT", 0) != 0;
                     });
    }

    std::string LogText() const { return test::read_file_text(root_.file(L"soak.log")); }
    // The log written since the cycle began; all of it after a rotation.
    std::string NewLog() const
    {
        const std::string text = LogText();
        return text.size() >= logStart_ ? text.substr(logStart_) : text;
    }

    std::mt19937 random_;
    test::registry_sandbox_t registry_;
    test::temp_folder_t root_;
    test::ocisim_world_t world_;
    std::wstring logs_;
    std::wstring home_ = L"C:\\oracle\\soakhome";
    std::string scenario_;
    std::vector<std::wstring> lastRecIds_;
    std::vector<std::string> statements_;
    std::vector<std::string> boundedStatements_;
    size_t logStart_ = 0;
    // The cycle's faults, as the violations name them.
    std::string context_;
    test::library_t library_;
};

} // namespace

int main(int argc, char** argv)
{
    const int cycles = argc > 1 ? std::atoi(argv[1]) : 200;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 20261123u;
    SetUnhandledExceptionFilter(on_crash);
    CSoak soak(seed);
    for (g_cycle = 0; g_cycle < cycles;) {
        soak.Cycle();
        ++g_cycle;
        if (g_cycle % 20 == 0)
            std::fprintf(stderr, "soak: %d cycles done, %zu violations\n", g_cycle, g_violations.size());
    }
    closing_line();
    return g_violations.empty() ? 0 : 1;
}
