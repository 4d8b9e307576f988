#include "oracle/inventory/db_param_files.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/handle.h"
#include "common/win/last_error.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/db_info_collector.h"
#include "oracle/logs/arch_log_files.h"
#include "oracle/oracle_settings.h"

#include <shlobj.h>

#include <algorithm>
#include <cwctype>

namespace specific {
namespace oracle {

namespace {

// The tool starts slowly even when nothing is wrong.
constexpr int32_t kMinToolTimeoutSec = 60;
const char kPasswordLabel[] = "Password file:";

std::string read_whole_file(const std::wstring& path)
{
    const win::win_file_ptr file = win::open_file_read(path);
    const uint64_t size = file->size();
    std::string bytes(static_cast<size_t>(size), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        const uint32_t read = file->read(&bytes[done], static_cast<uint32_t>(bytes.size() - done));
        if (read == 0)
            throw exc::runtime_exc_t("The file ended before its size: [%1].", util::wide_to_utf8(path));
        done += read;
    }
    return bytes;
}

std::wstring trim(const std::wstring& text)
{
    const auto first = std::find_if_not(text.begin(), text.end(), iswspace);
    const auto last = std::find_if_not(text.rbegin(), text.rend(), iswspace).base();
    return first < last ? std::wstring(first, last) : std::wstring();
}

std::wstring command_interpreter()
{
    wchar_t buffer[MAX_PATH + 1] = {};
    const DWORD length = GetEnvironmentVariableW(L"COMSPEC", buffer, MAX_PATH + 1);
    return length > 0 && length <= MAX_PATH ? std::wstring(buffer, length) : L"cmd.exe";
}

} // namespace

std::wstring GetConfigFilePath(const SOracleSid& sid)
{
    const std::wstring folder = win::join_path(sid.homePath, L"database");
    const std::wstring spfile = win::join_path(folder, L"spfile" + sid.sid + L".ora");
    if (win::file_exists(spfile))
        return spfile;
    const std::wstring init = win::join_path(folder, L"init" + sid.sid + L".ora");
    if (win::file_exists(init))
        return init;
    return std::wstring();
}

std::wstring MakeTempFilePath()
{
    std::wstring base;
    wchar_t folder[MAX_PATH + 1] = {};
    if (SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder))) {
        base = win::join_path(folder, L"Brelm\\Backup\\Tmp\\");
        if (!win::file_exists(base))
            win::create_folders(base);
    } else {
        base = win::get_temp_path();
    }
    return win::join_path(base, util::guid_to_str(util::new_guid()));
}

bool RunCommandBounded(const std::wstring& command, int32_t timeoutSec)
{
    // A job holds the interpreter and everything it starts, so a late tool
    // goes with its whole tree.
    const win::unique_handle_t job(CreateJobObjectW(nullptr, nullptr));
    if (!job)
        win::throw_last_error("Failed to create a job for: %1", util::wide_to_utf8(command));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof(limits));

    std::wstring line = L"\"" + command_interpreter() + L"\" /c " + command;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION created{};
    if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE,
                        CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr, nullptr, &startup, &created))
        win::throw_last_error("Failed to run: %1", util::wide_to_utf8(command));
    const win::unique_handle_t process(created.hProcess);
    const win::unique_handle_t thread(created.hThread);
    if (!AssignProcessToJobObject(job.get(), process.get())) {
        TerminateProcess(process.get(), 1);
        win::throw_last_error("Failed to put into a job: %1", util::wide_to_utf8(command));
    }
    ResumeThread(thread.get());
    const DWORD waited = WaitForSingleObject(process.get(), static_cast<DWORD>(timeoutSec) * 1000);
    if (waited == WAIT_OBJECT_0)
        return true;
    TerminateJobObject(job.get(), 1);
    WaitForSingleObject(process.get(), 5000);
    return false;
}

void CDbInfoCollector::GetPfileContent(CDatabaseProps& props)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Getting pfile content");
        const std::wstring path = MakeTempFilePath();
        const std::string sqlPath = util::wide_to_ansi(path);
        bool fromSpfile = true;
        try {
            query->ExecNoResult(util::format_msg("create pfile='%1' from spfile", sqlPath));
        } catch (const std::exception& caught) {
            logging::oralib().warning_exc("Unable to create pfile from spfile", caught);
            fromSpfile = false;
        }
        const COracleFileRemover remover(util::wide_to_utf8(path), holder->GetSession());
        if (!fromSpfile || !win::file_exists(path))
            query->ExecNoResult(util::format_msg("create pfile='%1' from memory", sqlPath));
        const std::string bytes = read_whole_file(path);
        if (!bytes.empty())
            props.pfile = util::base64_encode(bytes);
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to get pfile content", caught);
    }
}

std::wstring CDbInfoCollector::GetPwdFilePath()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Getting pwd file location");
        std::wstring path;
        if (holder->GetSession()->IsVersion12OrHigher() && GetAsmPwdFilePath(path)) {
            logging::oralib().info("Found pwd file (ASM location): %1", util::wide_to_ansi_safe(path));
            operation.ok();
            return path;
        }
        const std::wstring candidate = win::join_path(win::join_path(sid->homePath, L"database"),
                                                      L"PWD" + sid->sid + L".ora");
        operation.ok();
        if (!win::file_exists(candidate))
            return std::wstring();
        logging::oralib().info("Found pwd file: %1", util::wide_to_ansi_safe(candidate));
        return candidate;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to get password file location", caught);
        return std::wstring();
    }
}

bool CDbInfoCollector::GetAsmPwdFilePath(std::wstring& path)
{
    try {
        std::wstring script = win::join_path(win::join_path(sid->homePath, L"bin"), L"srvctl") + L".bat";
        if (!win::file_exists(script))
            script = win::join_path(win::join_path(win::join_path(sid->homePath, L"srvm"), L"bin"),
                                    L"srvctl") + L".bat";
        if (!win::file_exists(script))
            return false;
        const std::wstring outFile = MakeTempFilePath();
        const std::wstring command =
            util::format_msg(L"%1 config database -db %2 > %3", script, sid->sid, outFile);
        logging::oralib().info("Executing script: %1", util::wide_to_ansi_safe(command));
        const int32_t timeoutSec = std::max(OracleSettings().connectionTimeoutSec, kMinToolTimeoutSec);
        const COracleFileRemover remover(util::wide_to_utf8(outFile), nullptr);
        if (!RunCommandBounded(command, timeoutSec))
            throw exc::runtime_exc_t("The script did not finish within %1 seconds and was ended.",
                                     std::to_string(timeoutSec));
        if (!win::file_exists(outFile))
            return false;

        const std::string output = read_whole_file(outFile);
        bool found = false;
        for (size_t start = 0; start < output.size() && !found;) {
            const size_t end = std::min(output.find('\n', start), output.size());
            const std::string line = output.substr(start, end - start);
            if (line.empty())
                break;
            logging::oralib().info("%1", line);
            if (line.find(kPasswordLabel) != std::string::npos) {
                // Cut at the label's length, not where it stands: that is the
                // tool's layout.
                path = trim(util::ansi_to_wide(line.substr(sizeof(kPasswordLabel) - 1)));
                found = true;
            }
            start = end + 1;
        }
        return found && !path.empty();
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to get password file ASM location", caught);
        return false;
    }
}

} // namespace oracle
} // namespace specific
