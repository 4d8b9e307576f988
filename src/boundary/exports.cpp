// The library's entry points. Each is a thin frame: it copies its arguments,
// narrows the database credentials, calls the facade and turns a failure into
// E_FAIL with an allocated error text. No work of the system is done here.
#include <windows.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "boundary/error_string.h"
#include "boundary/oracle_config.h"
#include "boundary/oracle_manager.h"
#include "common/ctx/lib_init.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/inventory/vss_gate.h"
#include "orasnap/orasnap.h"

using specific::oracle::COracleConfig;
using specific::oracle::COracleManager;
using specific::oracle::CopyToHeap;
using specific::oracle::MakeErrorString;
using specific::oracle::SOracleCredentials;

namespace {

// Set at the very end of the first successful OracleVssInitLib; never reset.
// Read and written under init_lock(), so that first calls racing from several
// threads set up the log and the configuration once, whoever comes first.
bool g_libInitialized = false;

// An input text the caller left null is the empty text.
std::wstring text_arg(const wchar_t* text)
{
    return text != nullptr ? std::wstring(text) : std::wstring();
}

// A null `errorText` means the caller wants no text: the failure is only logged.
void hand_over_error(wchar_t* text, wchar_t** errorText) noexcept
{
    if (errorText != nullptr)
        *errorText = text;
    else
        std::free(text);
}

// An output cell that the call needs and the caller left null: the export
// does no work, logs one line naming itself and the argument, and returns
// E_POINTER with that line as its error text.
bool is_null_cell(const char* exportName, const char* argument, const void* cell,
                  wchar_t** errorText) noexcept
{
    if (cell != nullptr)
        return false;
    const char* format = "%1: the argument %2 is a null pointer.";
    logging::oralib().error(format, exportName, argument);
    try {
        const std::string text = util::format_msg(format, exportName, argument);
        hand_over_error(CopyToHeap(util::ansi_to_wide_safe(text)), errorText);
    } catch (...) {
        // Only an exhausted heap gets here; the caller still gets E_POINTER.
    }
    return true;
}

std::mutex& init_lock()
{
    static std::mutex lock;
    return lock;
}

// Runs `body` and reports a std::exception as E_FAIL with its text in
// `errorText`. Output cells are written by `body` only once it has succeeded.
template <typename Body>
HRESULT run_frame(const char* literal, wchar_t** errorText, Body body)
{
    try {
        body();
        return S_OK;
    } catch (const std::exception& caught) {
        hand_over_error(MakeErrorString(literal, caught), errorText);
        return E_FAIL;
    }
}

// An export that hands a text back: refused without its result cell, else `produce`
// runs in the frame and its text goes to the cell.
template <typename Produce>
HRESULT run_text_frame(const char* exportName, const char* literal, wchar_t** result,
                       wchar_t** errorText, Produce produce)
{
    if (is_null_cell(exportName, "result", result, errorText))
        return E_POINTER;
    return run_frame(literal, errorText, [&] { *result = CopyToHeap(produce()); });
}

// Copies the database login and password and narrows them for the client.
SOracleCredentials copy_credentials(const wchar_t* login, const wchar_t* password)
{
    const std::wstring passwordCopy = text_arg(password);
    const std::wstring loginCopy = text_arg(login);
    return SOracleCredentials{util::wide_to_ansi(loginCopy), util::wide_to_ansi(passwordCopy)};
}

} // namespace

extern "C" {

HRESULT OracleVssInitLib(const wchar_t* logName, wchar_t** errorText)
{
    const std::lock_guard<std::mutex> lock(init_lock());
    if (g_libInitialized)
        return S_OK;
    return run_frame("Failed to initialize oracle VSS lib.", errorText, [&] {
        const std::wstring name = text_arg(logName);
        util::init_common_lib(name, std::vector<std::wstring>());
        COracleManager::Instance();
        COracleConfig::Instance().Log();
        g_libInitialized = true;
    });
}

HRESULT OracleVssStopLib(wchar_t** errorText)
{
    return run_frame("Failed to stop oracle VSS lib.", errorText,
                    [] { specific::oracle::GetVssGate().DropEntries(); });
}

HRESULT OracleGatherVssInfo(void*, void*, wchar_t** result, wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to gather oracle info.", result, errorText,
                          [] { return specific::oracle::GetVssGate().GatherVssInfo(); });
}

HRESULT OracleShouldSkipVssWriter(const wchar_t* sid, bool* skip, wchar_t** errorText)
{
    if (is_null_cell(__func__, "skip", skip, errorText))
        return E_POINTER;
    return run_frame("Failed to check if should skip VSS writer", errorText, [&] {
        const std::wstring sidCopy = text_arg(sid);
        const bool skipped = specific::oracle::GetVssGate().IsSkipped(sidCopy);
        *skip = skipped;
    });
}

HRESULT OracleCheckVssFunctionality(bool* functional, wchar_t** errorText)
{
    if (is_null_cell(__func__, "functional", functional, errorText))
        return E_POINTER;
    return run_frame("Failed to check VSS functionality.", errorText, [&] {
        const bool enabled = specific::oracle::GetVssGate().IsVssEnabled();
        *functional = enabled;
    });
}

void OracleLibStrFree(wchar_t* text)
{
    std::free(text);
}

HRESULT OracleExploreInstances(bool exploreFlag, const wchar_t* login, const wchar_t* password,
                               const wchar_t* exploreDbConfigXml, wchar_t** result,
                               wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to explore oracle instances.", result, errorText, [&] {
        const std::wstring configCopy = text_arg(exploreDbConfigXml);
        const SOracleCredentials credentials = copy_credentials(login, password);
        return COracleManager::Instance().ExploreInstances(exploreFlag, credentials, configCopy);
    });
}

HRESULT OracleBackupLogs(const wchar_t* homePath, const wchar_t* sid, const wchar_t* usn,
                         const wchar_t* lastRecId, const wchar_t* login, const wchar_t* password,
                         wchar_t** result, wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to backup oracle logs.", result, errorText, [&] {
        const SOracleCredentials credentials = copy_credentials(login, password);
        return COracleManager::Instance().BackupLogs(text_arg(homePath), text_arg(sid), text_arg(usn),
                                                     text_arg(lastRecId), credentials);
    });
}

HRESULT OracleEnumLogs(wchar_t** result, wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to enum oracle logs.", result, errorText,
                          [] { return COracleManager::Instance().EnumLogs(); });
}

HRESULT OraclePrepareDbsForBackup(const wchar_t* dbsXml, const wchar_t* exploreDbConfigXml,
                                  const wchar_t* login, const wchar_t* password,
                                  const wchar_t* osLogin, const wchar_t* osPassword,
                                  wchar_t** result, wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to prepare dbs for backup", result, errorText, [&] {
        // The operating system account stays wide: it is kept for the restore, not
        // handed to Oracle.
        const SOracleCredentials credentials = copy_credentials(login, password);
        return COracleManager::Instance().PrepareDbsForBackup(text_arg(dbsXml), text_arg(exploreDbConfigXml),
                                                              credentials, text_arg(osLogin),
                                                              text_arg(osPassword));
    });
}

HRESULT OracleFinishDbsBackup(const wchar_t* dbsXml, const wchar_t* login, const wchar_t* password,
                              wchar_t** errorText)
{
    return run_frame("Failed to finish dbs backup", errorText, [&] {
        const SOracleCredentials credentials = copy_credentials(login, password);
        COracleManager::Instance().FinishDbsBackup(text_arg(dbsXml), credentials);
    });
}

HRESULT OracleDeleteLogsByTime(const wchar_t* homePath, const wchar_t* sid, int32_t minutes,
                               const wchar_t* login, const wchar_t* password, wchar_t** errorText)
{
    return run_frame("Failed to delete oracle logs by time", errorText, [&] {
        COracleManager::Instance().DeleteLogsByTime(text_arg(homePath), text_arg(sid), minutes,
                                                    copy_credentials(login, password));
    });
}

HRESULT OracleDeleteLogsBySize(const wchar_t* homePath, const wchar_t* sid, uint64_t sizeLimit,
                               const wchar_t* login, const wchar_t* password, wchar_t** errorText)
{
    return run_frame("Failed to delete oracle logs by size", errorText, [&] {
        COracleManager::Instance().DeleteLogsBySize(text_arg(homePath), text_arg(sid), sizeLimit,
                                                    copy_credentials(login, password));
    });
}

HRESULT OracleRemoveLogsInTemp(const wchar_t* logsXml, wchar_t** errorText)
{
    return run_frame("Failed to remove oracle logs.", errorText, [&] {
        const std::wstring logsCopy = text_arg(logsXml);
        COracleManager::Instance().RemoveLogsInTemp(logsCopy);
    });
}

HRESULT OracleIsRestoreRequired(bool* required, wchar_t** errorText)
{
    if (is_null_cell(__func__, "required", required, errorText))
        return E_POINTER;
    return run_frame("Failed to check if restore required", errorText, [&] {
        const bool answer = COracleManager::Instance().IsRestoreRequired();
        *required = answer;
    });
}

HRESULT OracleDoRestore(wchar_t** errorText)
{
    return run_frame("Failed to do oracle restore", errorText,
                    [] { COracleManager::Instance().DoRestore(); });
}

HRESULT OracleGetLogsFolder(wchar_t** result, wchar_t** errorText)
{
    return run_text_frame(__func__, "Failed to get oracle logs folder.", result, errorText,
                          [] { return COracleManager::Instance().GetLogsFolder(); });
}

HRESULT OracleTest(void*, void*, const wchar_t* logName, wchar_t** errorText)
{
    const HRESULT initialized = OracleVssInitLib(logName, errorText);
    if (FAILED(initialized))
        return initialized;
    const HRESULT tested = run_frame("Failed to test oracle.", errorText,
                                    [] { COracleManager::Instance().Test(); });
    if (FAILED(tested))
        return tested;
    return OracleVssStopLib(errorText);
}

} // extern "C"
