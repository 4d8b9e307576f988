// What the benchmarks that run the library against the simulated client share:
// a private HKEY_LOCAL_MACHINE, the statements the simulator journaled, and a
// bare loop that runs statement texts straight through OCI.dll as the baseline.
#pragma once

#include "oracle/client/oci_api.h"
#include "oracle/client/oracle_session.h"

#include <windows.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace bench {

namespace oci = specific::oracle::oci;
using specific::oracle::COracleSession;

// HKEY_LOCAL_MACHINE of this process is a private key for the run.
class CPrivateMachine {
public:
    explicit CPrivateMachine(const std::wstring& name)
        : path_(L"Software\\orasnap-bench\\" + name + L"-" + std::to_wstring(GetCurrentProcessId()))
    {
        RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &root_, nullptr);
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, root_);
    }
    ~CPrivateMachine()
    {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegCloseKey(root_);
        RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    }

    void Set(const std::wstring& key, const wchar_t* name, const std::wstring& value, DWORD type = REG_SZ) const
    {
        HKEY handle = nullptr;
        RegCreateKeyExW(root_, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &handle, nullptr);
        RegSetValueExW(handle, name, 0, type, reinterpret_cast<const BYTE*>(value.c_str()),
                       static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
        RegCloseKey(handle);
    }

private:
    std::wstring path_;
    HKEY root_ = nullptr;
};

// Each database's statements as the journal has them, tabs and line feeds
// written back.
inline std::map<std::string, std::vector<std::string>> journaled_statements(const std::wstring& journal)
{
    std::map<std::string, std::vector<std::string>> statements;
    std::ifstream file(journal.c_str());
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("sql sid=", 0) != 0)
            continue;
        const size_t text = line.find(" text=");
        std::string sql;
        const std::string escaped = line.substr(text + 6);
        for (size_t i = 0; i < escaped.size(); ++i) {
            if (escaped[i] == '\\' && i + 1 < escaped.size() && (escaped[i + 1] == 't' || escaped[i + 1] == 'n')) {
                sql += escaped[++i] == 't' ? '\t' : '\n';
                continue;
            }
            sql += escaped[i];
        }
        statements[line.substr(8, text - 8)].push_back(sql);
    }
    return statements;
}

// Columns of a SELECT: commas of its select list outside parentheses, plus one.
inline oci::ub4 select_columns(const std::string& sql)
{
    if (sql.rfind("SELECT ", 0) != 0)
        return 0;
    oci::ub4 columns = 1;
    int depth = 0;
    for (size_t i = 7; i < sql.size() && sql.compare(i, 6, " FROM ") != 0; ++i) {
        depth += sql[i] == '(' ? 1 : sql[i] == ')' ? -1 : 0;
        columns += depth == 0 && sql[i] == ',' ? 1 : 0;
    }
    return columns;
}

template <typename T>
T entry(HMODULE module, const char* name)
{
    return reinterpret_cast<T>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

struct SOciCalls {
    oci::OCIHandleAlloc_t handleAlloc;
    oci::OCIHandleFree_t handleFree;
    oci::OCIStmtPrepare_t prepare;
    oci::OCIDefineByPos_t define;
    oci::OCIStmtExecute_t execute;
    oci::OCIStmtFetch2_t fetch;
};

// The entry points of the client this process loaded.
inline SOciCalls oci_calls()
{
    HMODULE client = GetModuleHandleW(L"OCI.dll");
    return {entry<oci::OCIHandleAlloc_t>(client, "OCIHandleAlloc"), entry<oci::OCIHandleFree_t>(client, "OCIHandleFree"),
            entry<oci::OCIStmtPrepare_t>(client, "OCIStmtPrepare"), entry<oci::OCIDefineByPos_t>(client, "OCIDefineByPos"),
            entry<oci::OCIStmtExecute_t>(client, "OCIStmtExecute"), entry<oci::OCIStmtFetch2_t>(client, "OCIStmtFetch2")};
}

// One statement straight through the client: every row fetched, one a round
// trip, into 1024-byte buffers; nothing converted.
inline size_t run_plain(const SOciCalls& calls, const COracleSession& session, const std::string& sql)
{
    oci::OCIError* error = session.env->ErrorHandle();
    void* statement = nullptr;
    calls.handleAlloc(session.env->handle, &statement, oci::OCI_HTYPE_STMT, 0, nullptr);
    auto* stmt = static_cast<oci::OCIStmt*>(statement);
    calls.prepare(stmt, error, reinterpret_cast<const oci::OraText*>(sql.c_str()), static_cast<oci::ub4>(sql.size()),
                  oci::OCI_NTV_SYNTAX, oci::OCI_DEFAULT);
    const oci::ub4 columns = select_columns(sql);
    std::vector<char> buffers(columns * 1024);
    std::vector<oci::sb2> indicators(columns);
    std::vector<oci::OCIDefine*> defines(columns);
    for (oci::ub4 i = 0; i < columns; ++i)
        calls.define(stmt, &defines[i], error, i + 1, &buffers[i * 1024], 1024, oci::SQLT_STR, &indicators[i],
                     nullptr, nullptr, oci::OCI_DEFAULT);
    calls.execute(session.serviceContext->As<oci::OCISvcCtx>(), stmt, error, columns == 0 ? 1 : 0, 0, nullptr,
                  nullptr, oci::OCI_DEFAULT);
    size_t rows = 0;
    while (columns > 0 && calls.fetch(stmt, error, 1, oci::OCI_FETCH_NEXT, 0, oci::OCI_DEFAULT) == oci::OCI_SUCCESS)
        ++rows;
    for (oci::OCIDefine* handle : defines)
        calls.handleFree(handle, oci::OCI_HTYPE_DEFINE);
    calls.handleFree(statement, oci::OCI_HTYPE_STMT);
    return rows;
}

} // namespace bench
