/* The public header as an agent written in C uses it: compiled as C11, linked with the
 * import library of orasnap.dll, on a machine of one open database served by the
 * simulated client. The machine's registry is a private key that stands in for
 * HKEY_LOCAL_MACHINE, so the test prefix keeps no trace of it. */
#include <windows.h>
#include <shellapi.h>

#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "orasnap/orasnap.h"

static int g_failures = 0;

#define CHECK(condition) check((condition), #condition, __LINE__)

static void check(int passed, const char* condition, int line)
{
    if (!passed) {
        fprintf(stderr, "orasnap_test.c:%d: failed: %s\n", line, condition);
        ++g_failures;
    }
}

/* A call's HRESULT against the one expected; on a mismatch its error text is shown. */
#define CHECK_HR(call, expected, error) check_hr((call), (expected), (error), #call, __LINE__)

static void check_hr(HRESULT actual, HRESULT expected, const wchar_t* error, const char* call, int line)
{
    if (actual != expected) {
        fprintf(stderr, "orasnap_test.c:%d: failed: %s returned 0x%08lx: %ls\n", line, call, (unsigned long)actual,
                error != NULL ? error : L"");
        ++g_failures;
    }
}

static int starts_with(const wchar_t* text, const wchar_t* prefix)
{
    return text != NULL && wcsncmp(text, prefix, wcslen(prefix)) == 0;
}

static void set_string(HKEY root, const wchar_t* path, const wchar_t* name, const wchar_t* value, DWORD type)
{
    HKEY key = NULL;
    CHECK(RegCreateKeyExW(root, path, 0, NULL, 0, KEY_ALL_ACCESS, NULL, &key, NULL) == ERROR_SUCCESS);
    CHECK(RegSetValueExW(key, name, 0, type, (const BYTE*)value, (DWORD)((wcslen(value) + 1) * sizeof(wchar_t))) ==
          ERROR_SUCCESS);
    RegCloseKey(key);
}

/* One open ARCHIVELOG database that archives into `folder`. */
static void write_scenario(const wchar_t* path, const wchar_t* folder)
{
    FILE* file = _wfopen(path, L"wb");
    CHECK(file != NULL);
    if (file == NULL)
        return;
    fprintf(file,
            "[instance ORCL]\n"
            "status = OPEN\n"
            "log_mode = ARCHIVELOG\n"
            "archive_dest = %ls\n"
            "unarchived_logs = 1\n"
            "datafile = name=C:\\oradata\\ORCL\\SYSTEM01.DBF\n",
            folder);
    fclose(file);
}

static void remove_tree(const wchar_t* folder)
{
    wchar_t from[MAX_PATH + 2] = {0};
    wcsncpy(from, folder, MAX_PATH);
    SHFILEOPSTRUCTW operation = {0};
    operation.wFunc = FO_DELETE;
    operation.pFrom = from;
    operation.fFlags = FOF_NO_UI;
    SHFileOperationW(&operation);
}

/* The library's calls, in the order an agent makes them. */
static void run_cycle(const wchar_t* logsFolder)
{
    wchar_t* error = NULL;
    wchar_t* result = NULL;
    bool flag = false;

    CHECK_HR(OracleVssInitLib(L"orasnap_c_test.log", &error), S_OK, error);

    CHECK_HR(OracleGetLogsFolder(&result, &error), S_OK, error);
    CHECK(result != NULL && wcscmp(result, logsFolder) == 0);
    OracleLibStrFree(result);

    CHECK_HR(OracleCheckVssFunctionality(&flag, &error), S_OK, error);
    CHECK(flag);
    CHECK_HR(OracleCheckVssFunctionality(NULL, &error), E_POINTER, error);
    CHECK(error != NULL && wcscmp(error, L"OracleCheckVssFunctionality: the argument functional is a null pointer.") == 0);
    OracleLibStrFree(error);
    error = NULL;

    CHECK_HR(OracleTest(NULL, NULL, L"orasnap_c_test.log", &error), S_OK, error);

    result = NULL;
    CHECK_HR(OracleExploreInstances(true, L"", L"", L"", &result, &error), S_OK, error);
    CHECK(starts_with(result, L"<OracleOverall serverName=\"dbhost.example.test\" "));
    CHECK(result != NULL && wcsstr(result, L"<database isError=\"false\" name=\"ORCL\"") != NULL);
    CHECK(result != NULL && wcsstr(result, L"path=\"C:\\oradata\\ORCL\\SYSTEM01.DBF\"") != NULL);
    CHECK(result != NULL && wcsstr(result, L"<archived_log path=") != NULL);
    OracleLibStrFree(result);

    /* A failure: E_FAIL, the cause as the error text, the result cell untouched. */
    result = NULL;
    CHECK_HR(OraclePrepareDbsForBackup(L"<writers/>", L"", L"", L"", L"", L"", &result, &error), E_FAIL, error);
    CHECK(result == NULL);
    CHECK(starts_with(error, L"There is no node with the specified name: [databases]."));
    OracleLibStrFree(error);
    error = NULL;
    OracleLibStrFree(NULL);

    CHECK_HR(OracleVssStopLib(&error), S_OK, error);
}

int main(void)
{
    wchar_t folder[MAX_PATH] = {0};
    wchar_t path[MAX_PATH] = {0};
    wchar_t logs[MAX_PATH] = {0};
    wchar_t sandbox[64] = {0};
    GetTempPathW(MAX_PATH, path);
    /* One folder for every run: the library holds its log file open until the process
     * ends, so a run clears what the run before it left. */
    swprintf(folder, MAX_PATH, L"%lsorasnap-c-test", path);
    swprintf(logs, MAX_PATH, L"%ls\\logs", folder);
    swprintf(sandbox, 64, L"Software\\orasnap-test\\c-%lu", GetCurrentProcessId());
    remove_tree(folder);
    CHECK(CreateDirectoryW(folder, NULL));

    HKEY machine = NULL;
    CHECK(RegCreateKeyExW(HKEY_CURRENT_USER, sandbox, 0, NULL, 0, KEY_ALL_ACCESS, NULL, &machine, NULL) ==
          ERROR_SUCCESS);
    CHECK(RegOverridePredefKey(HKEY_LOCAL_MACHINE, machine) == ERROR_SUCCESS);
    const wchar_t* settings = L"SOFTWARE\\Brelm\\Brelm Safeguard";
    set_string(machine, settings, L"LogDirectory", folder, REG_SZ);
    set_string(machine, settings, L"OracleTempLogPath", logs, REG_SZ);
    set_string(machine, L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Hostname", L"dbhost", REG_SZ);
    set_string(machine, L"SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters", L"Domain", L"example.test", REG_SZ);
    set_string(machine, L"SOFTWARE\\ORACLE\\KEY_Home1", L"ORACLE_HOME", L"C:\\h", REG_SZ);
    set_string(machine, L"SOFTWARE\\ORACLE\\KEY_Home1", L"ORACLE_HOME_NAME", L"Home1", REG_SZ);
    set_string(machine, L"SYSTEM\\CurrentControlSet\\Services\\OracleServiceORCL", L"ImagePath",
               L"C:\\h\\bin\\oracle.exe ORCL", REG_EXPAND_SZ);

    swprintf(path, MAX_PATH, L"%ls\\scenario.txt", folder);
    write_scenario(path, folder);
    SetEnvironmentVariableW(L"OCISIM_SCENARIO", path);

    run_cycle(logs);

    swprintf(path, MAX_PATH, L"%ls\\orasnap_c_test.log", folder);
    CHECK(GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES);

    RegOverridePredefKey(HKEY_LOCAL_MACHINE, NULL);
    RegCloseKey(machine);
    RegDeleteTreeW(HKEY_CURRENT_USER, sandbox);
    printf("orasnap_test.c: %d failures\n", g_failures);
    return g_failures == 0 ? 0 : 1;
}
