// Measures the prepare and the finish of 20 open databases against the
// simulated client beside this executable: ten switched to hot backup state,
// five left to their VSS writer, five without archive logging shut down.
//   1. how long each database stays in hot backup state because of the
//      library: from its BEGIN BACKUP to the end of the prepare, and from the
//      start of the finish to its END BACKUP (the snapshot between them is the
//      agent's); a watcher thread stamps each statement as the simulator
//      journals it;
//   2. statements per database;
//   3. the ratio of the whole prepare to a bare loop that logs on to each
//      database and runs the very statement texts the prepare ran, and to the
//      same loop with the logon and each status probe on a thread of its own,
//      which shows what the library costs beyond those guarded threads;
//   4. how many such databases fit into the 60-second VSS freeze window.

#include "bench_oci.h"
#include "bench_util.h"
#include "orasnap/orasnap.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace bench;

constexpr int kDatabases = 20;
constexpr double kFreezeWindowSeconds = 60.0;
const wchar_t kHome[] = L"C:\\benchhome";
const char kBench[] = "prepare bench";

std::wstring sid_of(int index)
{
    wchar_t sid[8];
    swprintf(sid, 8, L"DB%02d", index + 1);
    return sid;
}

// Every fourth database has its writer enabled, every fourth runs without archive logging.
bool writer_enabled(int index)
{
    return index % 4 == 2;
}
bool without_archive_log(int index)
{
    return index % 4 == 3;
}

// Writes the registry and the scenario; returns the agent's list of enabled writers.
std::wstring write_machine(const CPrivateMachine& machine, const std::wstring& folder)
{
    machine.Set(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"LogDirectory", folder);
    machine.Set(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"OracleTempLogPath", folder + L"\\logs");
    machine.Set(L"SOFTWARE\\ORACLE\\KEY_BenchHome", L"ORACLE_HOME", kHome);
    machine.Set(L"SOFTWARE\\ORACLE\\KEY_BenchHome", L"ORACLE_HOME_NAME", L"BenchHome");
    std::ostringstream scenario;
    std::wstring writers = L"<databases>";
    for (int db = 0; db < kDatabases; ++db) {
        const std::wstring sid = sid_of(db);
        machine.Set(L"SYSTEM\\CurrentControlSet\\Services\\OracleService" + sid, L"ImagePath",
                    std::wstring(kHome) + L"\\bin\\oracle.exe " + sid, REG_EXPAND_SZ);
        scenario << "[instance " << narrow(sid) << "]\narchive_dest = " << narrow(folder) << "\n"
                 << "log_mode = " << (without_archive_log(db) ? "NOARCHIVELOG" : "ARCHIVELOG") << "\n";
        for (const char* file : {"SYSTEM01", "SYSAUX01", "USERS01"})
            scenario << "datafile = name=C:\\oradata\\" << narrow(sid) << "\\" << file << ".DBF\n";
        if (writer_enabled(db))
            writers += L"<database sid=\"" + sid + L"\"/>";
    }
    const std::wstring scenarioPath = folder + L"\\scenario.txt";
    std::ofstream(scenarioPath.c_str(), std::ios::binary) << scenario.str();
    set_env(L"OCISIM_SCENARIO", scenarioPath);
    set_env(L"OCISIM_STATE", folder + L"\\scenario.state");
    return writers + L"</databases>";
}

// Stamps the moments at which the simulator journals BEGIN BACKUP and END
// BACKUP of each database, by following the journal as it grows.
class CJournalWatch {
public:
    explicit CJournalWatch(std::wstring path) : path_(std::move(path)), thread_([this] { Follow(); }) {}
    ~CJournalWatch() { Stop(); }

    void Stop()
    {
        stop_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    const std::map<std::string, double>& Begun() const { return begun_; }
    const std::map<std::string, double>& Ended() const { return ended_; }

private:
    void Follow()
    {
        std::string pending;
        uint64_t offset = 0;
        while (!stop_) {
            Read(offset, pending);
            Sleep(1);
        }
        Read(offset, pending);
    }

    void Read(uint64_t& offset, std::string& pending)
    {
        std::ifstream journal(path_.c_str(), std::ios::binary);
        if (!journal)
            return;
        journal.seekg(static_cast<std::streamoff>(offset));
        std::ostringstream added;
        added << journal.rdbuf();
        const double seen = now_seconds();
        pending += added.str();
        offset += added.str().size();
        for (size_t end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            Note(pending.substr(0, end), seen);
            pending.erase(0, end + 1);
        }
    }

    void Note(const std::string& line, double seen)
    {
        const size_t text = line.find(" text=");
        if (line.rfind("sql sid=", 0) != 0 || text == std::string::npos)
            return;
        const std::string sid = line.substr(8, text - 8);
        const std::string sql = line.substr(text + 6);
        if (sql == "ALTER DATABASE BEGIN BACKUP")
            begun_.emplace(sid, seen);
        else if (sql == "ALTER DATABASE END BACKUP")
            ended_.emplace(sid, seen);
    }

    std::wstring path_;
    std::atomic<bool> stop_{false};
    std::map<std::string, double> begun_;
    std::map<std::string, double> ended_;
    std::thread thread_;
};

// A thread of its own for `body`, waited for to its end: what the library
// pays for each logon and each status probe, which must not hold the caller
// beyond its deadline.
template <typename Body>
void on_own_thread(Body body)
{
    HANDLE thread = CreateThread(
        nullptr, 0, [](LPVOID param) -> DWORD { (*static_cast<Body*>(param))(); return 0; }, &body, 0, nullptr);
    if (thread == nullptr)
        bench::fail(kBench, "cannot start a thread");
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

bool is_status_probe(const std::string& sql)
{
    return sql == "SELECT STATUS FROM V$INSTANCE" || sql == "SELECT DATABASE_STATUS FROM V$INSTANCE";
}

// The two shutdown calls around the statements that close a database: they
// are calls, not statements, so the journal has them on lines of their own.
void shutdown_call(const bench::COracleSession& session, bench::oci::ub4 mode)
{
    session.env->Ora().DBShutdown(session.serviceContext->As<bench::oci::OCISvcCtx>(), session.env->ErrorHandle(), mode);
}

// Logs on to each database and runs the statements the prepare ran, the
// shutdown calls included. With `threaded`, the logon and each status probe
// run on a thread of their own, as the library runs them.
double bare_loop(const bench::SOciCalls& calls, const std::map<std::string, std::vector<std::string>>& statements,
                 bool threaded)
{
    const double start = now_seconds();
    for (const auto& [sid, texts] : statements) {
        set_env(L"ORACLE_SID", std::wstring(sid.begin(), sid.end()));
        bench::COracleSession session({});
        const auto logon = [&session] { session.Init(bench::oci::OCI_SYSDBA); };
        if (threaded)
            on_own_thread(logon);
        else
            logon();
        for (const std::string& sql : texts) {
            const auto run = [&] { bench::run_plain(calls, session, sql); };
            if (sql == "ALTER DATABASE CLOSE NORMAL")
                shutdown_call(session, bench::oci::OCI_DBSHUTDOWN_IMMEDIATE);
            if (threaded && is_status_probe(sql))
                on_own_thread(run);
            else
                run();
            if (sql == "ALTER DATABASE DISMOUNT")
                shutdown_call(session, bench::oci::OCI_DBSHUTDOWN_FINAL);
        }
    }
    return now_seconds() - start;
}

} // namespace

int main()
{
    const std::wstring folder = bench::make_temp_folder(L"orasnap-prepare-bench-");
    CPrivateMachine machine(L"prepare");
    const std::wstring writers = write_machine(machine, folder);
    const std::wstring journal = folder + L"\\journal.txt";
    set_env(L"OCISIM_JOURNAL", journal);
    HMODULE library = LoadLibraryW(L"orasnap.dll");
    if (library == nullptr)
        bench::fail(kBench, "cannot load orasnap.dll");
    wchar_t* error = nullptr;
    if (entry<decltype(&OracleVssInitLib)>(library, "OracleVssInitLib")(L"prepare_bench.log", &error) != S_OK)
        bench::fail(kBench, "the log did not start");

    CJournalWatch watch(journal);
    wchar_t* result = nullptr;
    double start = now_seconds();
    const HRESULT prepared = entry<decltype(&OraclePrepareDbsForBackup)>(library, "OraclePrepareDbsForBackup")(
        writers.c_str(), L"", L"", L"", L"", L"", &result, &error);
    const double prepareEnd = now_seconds();
    const double watchedPrepareTime = prepareEnd - start;
    if (prepared != S_OK)
        bench::fail(kBench, "the prepare failed: " + narrow(error != nullptr ? error : L""));
    const std::wstring document = result;
    entry<decltype(&OracleLibStrFree)>(library, "OracleLibStrFree")(result);
    const auto statements = bench::journaled_statements(journal);

    const double finishStart = now_seconds();
    if (entry<decltype(&OracleFinishDbsBackup)>(library, "OracleFinishDbsBackup")(document.c_str(), L"", L"", &error) !=
        S_OK)
        bench::fail(kBench, "the finish failed: " + narrow(error != nullptr ? error : L""));
    const double finishTime = now_seconds() - finishStart;
    watch.Stop();

    int actions[7] = {};
    for (size_t at = document.find(L" action=\""); at != std::wstring::npos; at = document.find(L" action=\"", at + 1))
        ++actions[std::min(6, std::max(0, _wtoi(document.c_str() + at + 9)))];
    if (actions[2] != 10 || actions[3] != 5 || actions[4] != 5)
        bench::fail(kBench, "unexpected actions: " + narrow(document));
    if (watch.Begun().size() != 10 || watch.Ended().size() != 10)
        bench::fail(kBench, "the journal shows " + std::to_string(watch.Begun().size()) + " BEGIN BACKUP and " +
                                std::to_string(watch.Ended().size()) + " END BACKUP");
    double longestPrepare = 0.0, longestFinish = 0.0, sumPrepare = 0.0, sumFinish = 0.0;
    for (const auto& [sid, begun] : watch.Begun()) {
        const double inPrepare = prepareEnd - begun;
        const double inFinish = watch.Ended().at(sid) - finishStart;
        longestPrepare = std::max(longestPrepare, inPrepare);
        longestFinish = std::max(longestFinish, inFinish);
        sumPrepare += inPrepare;
        sumFinish += inFinish;
    }

    if (statements.size() != static_cast<size_t>(kDatabases))
        bench::fail(kBench, "the journal names " + std::to_string(statements.size()) + " databases");
    size_t statementCount = 0;
    for (const auto& [sid, texts] : statements)
        statementCount += texts.size();

    // The ratio compares runs on equal terms: each on a fresh world, none
    // journaled or watched, best of three, the library and the loops taking
    // turns so that a busy machine slows both alike.
    set_env(L"OCISIM_JOURNAL", L"");
    const std::wstring state = folder + L"\\scenario.state";
    const bench::SOciCalls calls = bench::oci_calls();
    double prepareTime = 1e9, bareTime = 1e9, threadedTime = 1e9;
    for (int round = 0; round < 3; ++round) {
        DeleteFileW(state.c_str());
        start = now_seconds();
        if (entry<decltype(&OraclePrepareDbsForBackup)>(library, "OraclePrepareDbsForBackup")(
                writers.c_str(), L"", L"", L"", L"", L"", &result, &error) != S_OK)
            bench::fail(kBench, "a timed prepare failed: " + narrow(error != nullptr ? error : L""));
        prepareTime = std::min(prepareTime, now_seconds() - start);
        entry<decltype(&OracleLibStrFree)>(library, "OracleLibStrFree")(result);
        DeleteFileW(state.c_str());
        bareTime = std::min(bareTime, bare_loop(calls, statements, false));
        DeleteFileW(state.c_str());
        threadedTime = std::min(threadedTime, bare_loop(calls, statements, true));
    }

    const double perDatabase = (watchedPrepareTime + finishTime) / kDatabases;
    std::printf("Prepare of %d databases (10 backup, 5 vss, 5 shutdown): %.3f s, %.1f ms per database "
                "(%.3f s journaled and watched), %.1f statements per database; finish %.2f s\n",
                kDatabases, prepareTime, prepareTime * 1000.0 / kDatabases, watchedPrepareTime,
                static_cast<double>(statementCount) / kDatabases, finishTime);
    std::printf("Hot backup state caused by the library: prepare mean %.1f ms, longest %.1f ms; "
                "finish mean %.1f ms, longest %.1f ms\n",
                sumPrepare * 1000.0 / 10, longestPrepare * 1000.0, sumFinish * 1000.0 / 10, longestFinish * 1000.0);
    std::printf("prepare: ratio %.2f (orasnap %.3f s, baseline %.3f s)\n", prepareTime / bareTime, prepareTime,
                bareTime);
    std::printf("prepare against a loop with the same guarded threads: ratio %.2f (orasnap %.3f s, baseline %.3f s)\n",
                prepareTime / threadedTime, prepareTime, threadedTime);
    std::printf("Freeze window of %.0f s: %d databases at %.1f ms each for prepare and finish\n",
                kFreezeWindowSeconds, static_cast<int>(kFreezeWindowSeconds / perDatabase), perDatabase * 1000.0);
    return 0;
}
