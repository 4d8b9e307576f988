// Measures the two costs of the Oracle client layer against the simulated
// client beside this executable:
//   1. how far past the connection timeout a hung logon returns to the caller
//      (20 logons that hang in attach, timeout 1 s): median and maximum;
//   2. a 10,000-row query through COracleQuery against a plain OCI fetch loop
//      on the same session: the ratio of their times.

#include "bench_util.h"
#include "boundary/oracle_config.h"
#include "oracle/client/oci_api.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

using namespace specific::oracle;

namespace {

using bench::set_env;

constexpr int kHungLogons = 20;
constexpr int kRows = 10000;
constexpr int kQueryRuns = 5;
constexpr char kRowQuery[] = "SELECT NAME, BYTES FROM V$DATAFILE";

double now_ms()
{
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2.0;
}

// The configuration is read once from HKLM: give it a timeout of one second
// from a private key of this process, without writing the machine's keys.
void configure_one_second_timeout()
{
    const std::wstring privatePath =
        L"Software\\orasnap-bench\\" + std::to_wstring(GetCurrentProcessId());
    HKEY root = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, privatePath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    &root, nullptr);
    HKEY config = nullptr;
    RegCreateKeyExW(root, L"SOFTWARE\\Brelm\\Brelm Safeguard", 0, nullptr, 0, KEY_ALL_ACCESS,
                    nullptr, &config, nullptr);
    const DWORD timeout = 1;
    RegSetValueExW(config, L"OracleConnectionTimeout", 0, REG_DWORD,
                   reinterpret_cast<const BYTE*>(&timeout), sizeof(timeout));
    RegCloseKey(config);
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, root);
    const int32_t seconds = COracleConfig::Instance().connectionTimeoutSec;
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(root);
    RegDeleteTreeW(HKEY_CURRENT_USER, privatePath.c_str());
    if (seconds != 1) {
        std::fprintf(stderr, "connection timeout is %d s, not 1 s\n", seconds);
        std::exit(1);
    }
}

std::wstring write_scenario(const std::wstring& folder, const std::string& name,
                            const std::string& text)
{
    const std::wstring path = folder + L"\\" + std::wstring(name.begin(), name.end());
    std::ofstream(path.c_str(), std::ios::binary) << text;
    DeleteFileW((path + L".state").c_str());
    return path;
}

void measure_hung_logons(const std::wstring& folder)
{
    set_env(L"OCISIM_SCENARIO",
            write_scenario(folder, "hang.txt", "[instance HUNG]\nfault = kind=hang | at=attach\n"));
    std::vector<double> overshoots;
    for (int i = 0; i < kHungLogons; ++i) {
        const double start = now_ms();
        try {
            COracleSessionHolder holder(L"HUNG", L"C:\\oracle", {}, false);
            std::fprintf(stderr, "logon %d did not hang\n", i);
            std::exit(1);
        } catch (const COracleInitTimeoutExc&) {
            overshoots.push_back(now_ms() - start - 1000.0);
        }
    }
    std::printf("Hung logons: %d, timeout 1000 ms, overshoot of the deadline: median %.1f ms, "
                "max %.1f ms\n",
                kHungLogons, median(overshoots), *std::max_element(overshoots.begin(), overshoots.end()));
}

// An entry point of the loaded client, typed.
template <typename Function>
Function client_entry(const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"OCI.dll"), name)));
}

// The same statement with the client's entry points called directly: one
// row per fetch into the same 1024-byte buffers, nothing converted.
size_t plain_fetch_loop(const COracleSession& session)
{
    const auto handleAlloc = client_entry<oci::OCIHandleAlloc_t>("OCIHandleAlloc");
    const auto handleFree = client_entry<oci::OCIHandleFree_t>("OCIHandleFree");
    const auto prepare = client_entry<oci::OCIStmtPrepare_t>("OCIStmtPrepare");
    const auto define = client_entry<oci::OCIDefineByPos_t>("OCIDefineByPos");
    const auto execute = client_entry<oci::OCIStmtExecute_t>("OCIStmtExecute");
    const auto fetch = client_entry<oci::OCIStmtFetch2_t>("OCIStmtFetch2");

    oci::OCIError* error = session.env->ErrorHandle();
    void* statement = nullptr;
    handleAlloc(session.env->handle, &statement, oci::OCI_HTYPE_STMT, 0, nullptr);
    auto* stmt = static_cast<oci::OCIStmt*>(statement);
    prepare(stmt, error, reinterpret_cast<const oci::OraText*>(kRowQuery),
            static_cast<oci::ub4>(sizeof(kRowQuery) - 1), oci::OCI_NTV_SYNTAX, oci::OCI_DEFAULT);
    char buffers[2][1024] = {};
    oci::sb2 indicators[2] = {};
    oci::OCIDefine* defines[2] = {};
    for (oci::ub4 i = 0; i < 2; ++i)
        define(stmt, &defines[i], error, i + 1, buffers[i], 1024, oci::SQLT_STR, &indicators[i],
               nullptr, nullptr, oci::OCI_DEFAULT);
    execute(session.serviceContext->As<oci::OCISvcCtx>(), stmt, error, 0, 0, nullptr, nullptr,
            oci::OCI_DEFAULT);
    size_t rows = 0;
    while (fetch(stmt, error, 1, oci::OCI_FETCH_NEXT, 0, oci::OCI_DEFAULT) == oci::OCI_SUCCESS)
        ++rows;
    for (oci::OCIDefine* handle : defines)
        handleFree(handle, oci::OCI_HTYPE_DEFINE);
    handleFree(statement, oci::OCI_HTYPE_STMT);
    return rows;
}

void measure_query(const std::wstring& folder)
{
    std::string scenario = "[instance ROWS]\n";
    for (int i = 0; i < kRows; ++i)
        scenario += "datafile = name=C:\\oradata\\ROWS\\data" + std::to_string(i) +
                    ".dbf | bytes=" + std::to_string(104857600 + i) + "\n";
    set_env(L"OCISIM_SCENARIO", write_scenario(folder, "rows.txt", scenario));

    COracleSessionHolder holder(L"ROWS", L"C:\\oracle", {}, false);
    const std::shared_ptr<COracleSession> session = holder.GetSession();
    std::vector<double> library;
    std::vector<double> plain;
    size_t libraryRows = 0;
    size_t plainRows = 0;
    for (int run = 0; run < kQueryRuns; ++run) {
        double start = now_ms();
        libraryRows = session->NewQuery()->Exec(kRowQuery, 2, false)->rows.size();
        library.push_back(now_ms() - start);
        start = now_ms();
        plainRows = plain_fetch_loop(*session);
        plain.push_back(now_ms() - start);
    }
    if (libraryRows != static_cast<size_t>(kRows) || plainRows != static_cast<size_t>(kRows)) {
        std::fprintf(stderr, "rows: COracleQuery %u, plain loop %u, expected %d\n",
                     static_cast<unsigned>(libraryRows), static_cast<unsigned>(plainRows), kRows);
        std::exit(1);
    }
    const double libraryMs = median(library);
    const double plainMs = median(plain);
    std::printf("Query of %d rows x 2 columns (median of %d runs): COracleQuery %.1f ms, plain OCI "
                "fetch loop %.1f ms, ratio %.2f\n",
                kRows, kQueryRuns, libraryMs, plainMs, libraryMs / plainMs);
}

} // namespace

int main()
{
    const std::wstring folder = bench::make_temp_folder(L"orasnap-bench-");

    configure_one_second_timeout();
    measure_hung_logons(folder);
    measure_query(folder);

    for (const wchar_t* name : {L"hang.txt", L"hang.txt.state", L"rows.txt", L"rows.txt.state"})
        DeleteFileW((folder + L"\\" + name).c_str());
    RemoveDirectoryW(folder.c_str());
    return 0;
}
