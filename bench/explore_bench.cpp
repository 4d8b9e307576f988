// Measures OracleExploreInstances of 20 open ARCHIVELOG databases with 1,000
// archived logs each (their files on disk), against the simulated client
// beside this executable, in one run:
//   1. time and statements per database;
//   2. the ratio against a bare loop that logs on to each database and runs
//      the very statement texts the explore ran (read from the simulator's
//      journal) straight through OCI.dll, fetching every row, one per round
//      trip, into plain buffers;
//   3. the peak working set of the process after the explore.
// The machine's registry is a private key of this process (HKLM redirected),
// and the library writes its log as it would at an agent.

#include "bench_oci.h"
#include "bench_util.h"
#include "oracle/client/oci_api.h"
#include "oracle/client/oracle_session.h"
#include "orasnap/orasnap.h"

#include <windows.h>
#include <psapi.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

using namespace specific::oracle;

namespace {

using namespace bench;

constexpr int kDatabases = 20;
constexpr int kLogsPerDatabase = 1000;
const wchar_t kHome[] = L"C:\\benchhome";

std::wstring sid_of(int index)
{
    wchar_t sid[8];
    swprintf(sid, 8, L"DB%02d", index + 1);
    return sid;
}

void write_machine(const CPrivateMachine& machine, const std::wstring& folder)
{
    machine.Set(L"SOFTWARE\\Brelm\\Brelm Safeguard", L"LogDirectory", folder);
    machine.Set(L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Hostname", L"benchhost");
    machine.Set(L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Domain", L"bench.test");
    machine.Set(L"SOFTWARE\\ORACLE\\KEY_BenchHome", L"ORACLE_HOME", kHome);
    machine.Set(L"SOFTWARE\\ORACLE\\KEY_BenchHome", L"ORACLE_HOME_NAME", L"BenchHome");
    std::ostringstream scenario;
    for (int db = 0; db < kDatabases; ++db) {
        const std::wstring sid = sid_of(db);
        machine.Set(L"SYSTEM\\CurrentControlSet\\Services\\OracleService" + sid, L"ImagePath",
                    std::wstring(kHome) + L"\\bin\\oracle.exe " + sid, REG_EXPAND_SZ);
        const std::wstring arch = folder + L"\\" + sid;
        CreateDirectoryW(arch.c_str(), nullptr);
        scenario << "[instance " << narrow(sid) << "]\narchive_dest = " << narrow(arch) << "\n"
                 << "datafile = name=C:\\oradata\\" << narrow(sid) << "\\SYSTEM01.DBF\n"
                 << "redolog = group=1 | member=C:\\oradata\\" << narrow(sid) << "\\REDO01.LOG\n";
        for (int log = 0; log < kLogsPerDatabase; ++log) {
            const std::wstring name = arch + L"\\L" + std::to_wstring(log) + L".ARC";
            CloseHandle(CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
            scenario << "archived_log = name=" << narrow(name) << "\n";
        }
    }
    const std::wstring scenarioPath = folder + L"\\scenario.txt";
    std::ofstream(scenarioPath.c_str(), std::ios::binary) << scenario.str();
    set_env(L"OCISIM_SCENARIO", scenarioPath);
    set_env(L"OCISIM_STATE", folder + L"\\scenario.state");
}

} // namespace

int main()
{
    const std::wstring folder = bench::make_temp_folder(L"orasnap-explore-bench-");
    CPrivateMachine machine(L"explore");
    write_machine(machine, folder);
    const std::wstring journal = folder + L"\\journal.txt";
    set_env(L"OCISIM_JOURNAL", journal);
    // The library as the agent loads it, after this process set up its machine.
    HMODULE library = LoadLibraryW(L"orasnap.dll");
    if (library == nullptr)
        bench::fail("explore bench", "cannot load orasnap.dll");
    wchar_t* error = nullptr;
    if (entry<decltype(&OracleVssInitLib)>(library, "OracleVssInitLib")(L"explore_bench.log", &error) != S_OK)
        bench::fail("explore bench", "the log did not start");

    wchar_t* result = nullptr;
    double start = now_seconds();
    const HRESULT explored =
        entry<decltype(&OracleExploreInstances)>(library, "OracleExploreInstances")(true, L"", L"", L"", &result, &error);
    const double libraryTime = now_seconds() - start;
    if (explored != S_OK)
        bench::fail("explore bench", "the explore failed: " + narrow(error != nullptr ? error : L""));
    const std::wstring document = result;
    entry<decltype(&OracleLibStrFree)>(library, "OracleLibStrFree")(result);
    PROCESS_MEMORY_COUNTERS memory{};
    memory.cb = sizeof(memory);
    K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
    size_t described = 0;
    for (size_t at = document.find(L"<archived_log "); at != std::wstring::npos;
         at = document.find(L"<archived_log ", at + 1))
        ++described;
    if (described != static_cast<size_t>(kDatabases) * (kLogsPerDatabase + 1))
        bench::fail("explore bench", "the document describes " + std::to_string(described) + " archived logs");

    // The baseline runs the statements of a fresh world, as the explore did.
    const auto statements = journaled_statements(journal);
    set_env(L"OCISIM_JOURNAL", L"");
    DeleteFileW((folder + L"\\scenario.state").c_str());
    const SOciCalls calls = bench::oci_calls();
    size_t statementCount = 0;
    size_t rows = 0;
    start = now_seconds();
    for (const auto& [sid, texts] : statements) {
        set_env(L"ORACLE_SID", std::wstring(sid.begin(), sid.end()));
        COracleSession session({});
        session.Init(oci::OCI_SYSDBA);
        for (const std::string& sql : texts)
            rows += run_plain(calls, session, sql);
        statementCount += texts.size();
    }
    const double baselineTime = now_seconds() - start;
    // The baseline's parameter files are its own to remove.
    for (const auto& [sid, texts] : statements)
        for (const std::string& sql : texts)
            if (sql.rfind("create pfile='", 0) == 0)
                DeleteFileA(sql.substr(14, sql.find('\'', 14) - 14).c_str());
    if (statements.size() != static_cast<size_t>(kDatabases))
        bench::fail("explore bench", "the journal names " + std::to_string(statements.size()) + " databases");

    std::printf("Explore of %d databases x %d archived logs: %.2f s, %.1f ms per database, %.1f statements "
                "per database (%u rows fetched in the baseline)\n",
                kDatabases, kLogsPerDatabase, libraryTime, libraryTime * 1000.0 / kDatabases,
                static_cast<double>(statementCount) / kDatabases, static_cast<unsigned>(rows));
    std::printf("explore: ratio %.2f (orasnap %.2f s, baseline %.2f s)\n", libraryTime / baselineTime, libraryTime,
                baselineTime);
    std::printf("explore: peak working set %.1f MiB\n", static_cast<double>(memory.PeakWorkingSetSize) / (1 << 20));
    return 0;
}
