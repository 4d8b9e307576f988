#include "host/cli_machine.h"

#include <stdexcept>

#include "common/strings/strings.h"
#include "ocisim/scenario_builder.h"
#include "support/process.h"

namespace test {

namespace {

const wchar_t kHomeKey[] = L"SOFTWARE\\ORACLE\\KEY_CliHome";
const wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\OracleServiceORCL";
const wchar_t kConfigKey[] = L"SOFTWARE\\Brelm\\Brelm Safeguard";

void remove_machine_keys()
{
    for (const wchar_t* key : {kHomeKey, kServiceKey, kConfigKey})
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
}

void set_value(const wchar_t* path, const wchar_t* name, DWORD type, const void* data, DWORD size)
{
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr) !=
        ERROR_SUCCESS)
        throw std::runtime_error("cannot create a machine key");
    const LONG code = RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), size);
    RegCloseKey(key);
    if (code != ERROR_SUCCESS)
        throw std::runtime_error("cannot set a machine value");
}

void set_string(const wchar_t* path, const wchar_t* name, const std::wstring& value, DWORD type = REG_SZ)
{
    set_value(path, name, type, value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

void set_dword(const wchar_t* path, const wchar_t* name, DWORD value)
{
    set_value(path, name, REG_DWORD, &value, sizeof(value));
}

// Quotes one argument of a command line; arguments never end in a backslash here.
std::wstring quoted(const std::wstring& arg)
{
    return L"\"" + arg + L"\"";
}

// An inheritable handle on `path`, closed on scope exit.
class std_file_t {
public:
    std_file_t(const std::wstring& path, bool write)
    {
        SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
        handle_ = CreateFileW(path.c_str(), write ? GENERIC_WRITE : GENERIC_READ, FILE_SHARE_READ, &inherit,
                              write ? CREATE_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    ~std_file_t() { CloseHandle(handle_); }
    std_file_t(const std_file_t&) = delete;
    std_file_t& operator=(const std_file_t&) = delete;
    HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

} // namespace

cli_run_t run_cli(const std::vector<std::wstring>& args, const std::string& input)
{
    temp_folder_t streams;
    FILE* in = _wfopen(streams.file(L"in").c_str(), L"wb");
    fwrite(input.data(), 1, input.size(), in);
    fclose(in);
    const std::wstring exe = exe_folder() + L"orasnap.exe";
    std::wstring commandLine = quoted(exe);
    for (const std::wstring& arg : args)
        commandLine += L" " + quoted(arg);
    cli_run_t run;
    {
        const std_file_t stdIn(streams.file(L"in"), false);
        const std_file_t stdOut(streams.file(L"out"), true);
        const std_file_t stdErr(streams.file(L"err"), true);
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = stdIn.get();
        startup.hStdOutput = stdOut.get();
        startup.hStdError = stdErr.get();
        PROCESS_INFORMATION process = {};
        if (!CreateProcessW(exe.c_str(), &commandLine[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                            &startup, &process))
            throw std::runtime_error("cannot start orasnap.exe");
        WaitForSingleObject(process.hProcess, 120000);
        GetExitCodeProcess(process.hProcess, &run.exit_code);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    run.out = replace_all(read_file_text(streams.file(L"out")), "\r\n", "\n");
    run.err = replace_all(read_file_text(streams.file(L"err")), "\r\n", "\n");
    return run;
}

cli_machine_t::cli_machine_t(const std::string& password)
{
    remove_machine_keys();
    CreateDirectoryW(root_.file(L"logs").c_str(), nullptr);
    set_string(kHomeKey, L"ORACLE_HOME", home());
    set_string(kHomeKey, L"ORACLE_HOME_NAME", L"CliHome");
    set_string(kServiceKey, L"ImagePath", home() + L"\\bin\\oracle.exe ORCL", REG_EXPAND_SZ);
    set_string(kConfigKey, L"LogDirectory", root_.path());
    set_string(kConfigKey, L"OracleTempLogPath", logs_folder());
    set_dword(kConfigKey, L"OracleStageLogsBeforeBackup", 1);
    set_dword(kConfigKey, L"OracleConnectionTimeout", 20);

    ocisim::World world;
    ocisim::Instance& orcl = ocisim::add_typical_database(world, "ORCL", root_.file_utf8("ORCL"));
    for (ocisim::Record* user : orcl.records("user")) {
        user->set("password", password);
        user->set("sysdba", "yes");
    }
    ocisim::create_log_files(orcl);
    world_.set_world(world);
}

cli_machine_t::~cli_machine_t()
{
    remove_machine_keys();
}

} // namespace test
