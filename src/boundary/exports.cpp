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
#include "common/exc/exc.h"
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
// Read and written under InitLock(), so that first calls racing from several
// threads set up the log and the configuration once, whoever comes first.
bool g_libInitialized = false;

std::mutex& InitLock()
{
    static std::mutex lock;
    return lock;
}

// Runs `body` and reports a std::exception as E_FAIL with its text in
// `errorText`. Output cells are written by `body` only once it has succeeded.
template <typename Body>
HRESULT RunFrame(const char* literal, wchar_t** errorText, Body body)
{
    try {
        body();
        return S_OK;
    } catch (const std::exception& caught) {
        *errorText = MakeErrorString(literal, caught);
        return E_FAIL;
    }
}

// Copies the database login and password and narrows them for the client.
SOracleCredentials CopyCredentials(const wchar_t* login, const wchar_t* password)
{
    const std::wstring passwordCopy(password);
    const std::wstring loginCopy(login);
    return SOracleCredentials{util::wide_to_ansi(loginCopy), util::wide_to_ansi(passwordCopy)};
}

} // namespace

extern "C" {

HRESULT OracleVssInitLib(const wchar_t* logName, wchar_t** errorText)
{
    const std::lock_guard<std::mutex> lock(InitLock());
    if (g_libInitialized)
        return S_OK;
    return RunFrame("Failed to initialize oracle VSS lib.", errorText, [&] {
        const std::wstring name(logName);
        util::init_common_lib(name, std::vector<std::wstring>());
        COracleManager::Instance();
        COracleConfig::Instance().Log();
        g_libInitialized = true;
    });
}

HRESULT OracleVssStopLib(wchar_t** errorText)
{
    return RunFrame("Failed to stop oracle VSS lib.", errorText,
                    [] { specific::oracle::g_oracleEntriesHolder.reset(); });
}

HRESULT OracleGatherVssInfo(void*, void*, wchar_t** result, wchar_t** errorText)
{
    return RunFrame("Failed to gather oracle info.", errorText, [&] {
        const std::shared_ptr<specific::oracle::OracleEntries> entries =
            specific::oracle::g_oracleEntriesHolder;
        if (!entries)
            throw exc::runtime_exc_t("No Oracle VSS entries were gathered.");
        const std::wstring text = specific::oracle::GatherVssInfoXml(*entries);
        *result = CopyToHeap(text);
    });
}

HRESULT OracleShouldSkipVssWriter(const wchar_t* sid, bool* skip, wchar_t** errorText)
{
    return RunFrame("Failed to check if should skip VSS writer", errorText, [&] {
        const std::wstring sidCopy(sid);
        const bool skipped = specific::oracle::GetVssGate().IsSkipped(sidCopy);
        *skip = skipped;
    });
}

HRESULT OracleCheckVssFunctionality(bool* functional, wchar_t** errorText)
{
    return RunFrame("Failed to check VSS functionality.", errorText, [&] {
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
    return RunFrame("Failed to explore oracle instances.", errorText, [&] {
        const std::wstring configCopy(exploreDbConfigXml);
        const SOracleCredentials credentials = CopyCredentials(login, password);
        const std::wstring text =
            COracleManager::Instance().ExploreInstances(exploreFlag, credentials, configCopy);
        *result = CopyToHeap(text);
    });
}

HRESULT OracleBackupLogs(const wchar_t* homePath, const wchar_t* sid, const wchar_t* usn,
                         const wchar_t* lastRecId, const wchar_t* login, const wchar_t* password,
                         wchar_t** result, wchar_t** errorText)
{
    return RunFrame("Failed to backup oracle logs.", errorText, [&] {
        const SOracleCredentials credentials = CopyCredentials(login, password);
        const std::wstring text = COracleManager::Instance().BackupLogs(
            std::wstring(homePath), std::wstring(sid), std::wstring(usn), std::wstring(lastRecId),
            credentials);
        *result = CopyToHeap(text);
    });
}

HRESULT OracleEnumLogs(wchar_t** result, wchar_t** errorText)
{
    return RunFrame("Failed to enum oracle logs.", errorText, [&] {
        const std::wstring text = COracleManager::Instance().EnumLogs();
        *result = CopyToHeap(text);
    });
}

HRESULT OraclePrepareDbsForBackup(const wchar_t* dbsXml, const wchar_t* exploreDbConfigXml,
                                  const wchar_t* login, const wchar_t* password,
                                  const wchar_t* osLogin, const wchar_t* osPassword,
                                  wchar_t** result, wchar_t** errorText)
{
    return RunFrame("Failed to prepare dbs for backup", errorText, [&] {
        // The operating system account stays wide: it is kept for the restore, not
        // handed to Oracle.
        const SOracleCredentials credentials = CopyCredentials(login, password);
        const std::wstring text = COracleManager::Instance().PrepareDbsForBackup(
            std::wstring(dbsXml), std::wstring(exploreDbConfigXml), credentials,
            std::wstring(osLogin), std::wstring(osPassword));
        *result = CopyToHeap(text);
    });
}

HRESULT OracleFinishDbsBackup(const wchar_t* dbsXml, const wchar_t* login, const wchar_t* password,
                              wchar_t** errorText)
{
    return RunFrame("Failed to finish dbs backup", errorText, [&] {
        const SOracleCredentials credentials = CopyCredentials(login, password);
        COracleManager::Instance().FinishDbsBackup(std::wstring(dbsXml), credentials);
    });
}

HRESULT OracleDeleteLogsByTime(const wchar_t* homePath, const wchar_t* sid, int32_t minutes,
                               const wchar_t* login, const wchar_t* password, wchar_t** errorText)
{
    return RunFrame("Failed to delete oracle logs by time", errorText, [&] {
        const SOracleCredentials credentials = CopyCredentials(login, password);
        COracleManager::Instance().DeleteLogsByTime(std::wstring(homePath), std::wstring(sid),
                                                    minutes, credentials);
    });
}

HRESULT OracleDeleteLogsBySize(const wchar_t* homePath, const wchar_t* sid, uint64_t sizeLimit,
                               const wchar_t* login, const wchar_t* password, wchar_t** errorText)
{
    return RunFrame("Failed to delete oracle logs by size", errorText, [&] {
        const SOracleCredentials credentials = CopyCredentials(login, password);
        COracleManager::Instance().DeleteLogsBySize(std::wstring(homePath), std::wstring(sid),
                                                    sizeLimit, credentials);
    });
}

HRESULT OracleRemoveLogsInTemp(const wchar_t* logsXml, wchar_t** errorText)
{
    return RunFrame("Failed to remove oracle logs.", errorText, [&] {
        const std::wstring logsCopy(logsXml);
        COracleManager::Instance().RemoveLogsInTemp(logsCopy);
    });
}

HRESULT OracleIsRestoreRequired(bool* required, wchar_t** errorText)
{
    return RunFrame("Failed to check if restore required", errorText, [&] {
        const bool answer = COracleManager::Instance().IsRestoreRequired();
        *required = answer;
    });
}

HRESULT OracleDoRestore(wchar_t** errorText)
{
    return RunFrame("Failed to do oracle restore", errorText,
                    [] { COracleManager::Instance().DoRestore(); });
}

HRESULT OracleGetLogsFolder(wchar_t** result, wchar_t** errorText)
{
    return RunFrame("Failed to get oracle logs folder.", errorText, [&] {
        const std::wstring text = COracleManager::Instance().GetLogsFolder();
        *result = CopyToHeap(text);
    });
}

HRESULT OracleTest(void*, void*, const wchar_t* logName, wchar_t** errorText)
{
    const HRESULT initialized = OracleVssInitLib(logName, errorText);
    if (FAILED(initialized))
        return initialized;
    const HRESULT tested = RunFrame("Failed to test oracle.", errorText,
                                    [] { COracleManager::Instance().Test(); });
    if (FAILED(tested))
        return tested;
    return OracleVssStopLib(errorText);
}

} // extern "C"
