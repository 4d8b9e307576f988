#include "boundary/oracle_manager.h"

#include "boundary/console_check.h"
#include "boundary/oracle_config.h"
#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/impersonation.h"
#include "oracle/backup/backup_meta.h"
#include "oracle/backup/finish.h"
#include "oracle/backup/prepare.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/oracle_explorer.h"
#include "oracle/logs/logs_backup.h"
#include "oracle/logs/logs_folder.h"
#include "oracle/logs/logs_remover.h"

#include <ctime>
#include <iostream>

namespace specific {
namespace oracle {

namespace {

// A down instance is never asked whether its database is active.
bool is_open_and_active(const std::shared_ptr<COracleSession>& session)
{
    COracleInstanceStatus status;
    return status.IsInstanceOpen(session, false) && status.IsDbActive(session);
}

// The deletion limit: now, `minutes` earlier, in UTC, to the second.
std::wstring utc_limit_text(int32_t minutes)
{
    // In whole seconds of time_t: any int32 count of minutes fits without overflow.
    const time_t seconds = time(nullptr) - static_cast<time_t>(minutes) * 60;
    const tm* utc = gmtime(&seconds);
    char buffer[256] = {};
    if (utc == nullptr || strftime(buffer, sizeof(buffer), "%d/%m/%Y %H:%M:%S", utc) == 0)
        throw exc::runtime_exc_t("The time %1 minutes before now has no UTC form.",
                                 util::int_to_str(minutes));
    logging::oralib().info("UTC start time: %1", std::string(buffer));
    return util::ansi_to_wide(buffer);
}

// Runs `remove` on the archived logs of `sid` when its database is open and active;
// a closed one has nothing to delete.
template <typename Remove>
void delete_logs(const std::string& title, const std::wstring& homePath, const std::wstring& sid,
                 const SOracleCredentials& credentials, Remove remove)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           util::format_msg(title, util::wide_to_ansi(sid)));
        const auto holder = std::make_shared<COracleSessionHolder>(sid, homePath, credentials, false);
        if (is_open_and_active(holder->GetSession())) {
            COracleLogsRemover remover(holder, COracleConfig::Instance().deleteAbsentLogFiles);
            remove(remover);
        }
        operation.ok();
    } catch (const std::exception& caught) {
        // The word "time" is the line agents have always seen for both deletions.
        exc::throw_nested_trace("Oracle manager failed to delete archived logs by time", caught);
    }
}

} // namespace

COracleManager& COracleManager::Instance()
{
    static COracleManager manager;
    return manager;
}

std::wstring COracleManager::ExploreInstances(bool exploreFlag, const SOracleCredentials& credentials,
                                              const std::wstring& exploreDbConfigXml)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Exploring oracle instances");
        COracleExplorer explorer(exploreFlag, credentials, CExploreDbConfig(exploreDbConfigXml));
        std::wstring document = explorer.Explore();
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to explore Oracle instances", caught);
    }
}

void COracleManager::DeleteLogsByTime(const std::wstring& homePath, const std::wstring& sid,
                                      int32_t minutes, const SOracleCredentials& credentials)
{
    delete_logs("Deleting oracle logs by time. Sid: %1", homePath, sid, credentials,
                [minutes](COracleLogsRemover& remover) { remover.RemoveLogsByTime(utc_limit_text(minutes)); });
}

void COracleManager::DeleteLogsBySize(const std::wstring& homePath, const std::wstring& sid,
                                      uint64_t sizeLimit, const SOracleCredentials& credentials)
{
    delete_logs("Deleting oracle logs by size. Sid: %1", homePath, sid, credentials,
                [sizeLimit](COracleLogsRemover& remover) { remover.RemoveLogsBySize(sizeLimit); });
}

std::wstring COracleManager::PrepareDbsForBackup(const std::wstring& dbsXml,
                                                 const std::wstring& exploreDbConfigXml,
                                                 const SOracleCredentials& credentials,
                                                 const std::wstring& osLogin, const std::wstring& osPassword)
{
    try {
        std::wstring document = PrepareDbs(dbsXml, exploreDbConfigXml, credentials);
        // Only a folder that can't be made fails the call here; the databases
        // stay prepared, and the finish of this document undoes them.
        SaveBackupMeta(GetRestoreMetaPath(), document, credentials, osLogin, osPassword);
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to prepare dbs for backup", caught);
    }
}

void COracleManager::FinishDbsBackup(const std::wstring& dbsXml, const SOracleCredentials& credentials)
{
    try {
        FinishDbs(dbsXml, credentials, false);
        RemoveRestoreMeta(GetRestoreMetaPath());
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to finish dbs backup", caught);
    }
}

std::wstring COracleManager::BackupLogs(const std::wstring& homePath, const std::wstring& sid,
                                        const std::wstring& usn, const std::wstring& lastRecId,
                                        const SOracleCredentials& credentials)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(), util::format_msg("Backup oracle logs. Sid: %1", util::wide_to_ansi(sid)));
        const auto holder = std::make_shared<COracleSessionHolder>(sid, homePath, credentials, false);
        COracleLogsBackup backup(holder, COracleConfig::Instance().stageLogsBeforeBackup);
        std::wstring document = backup.BackupLogs(GetLogsFolder(), usn, lastRecId);
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to backup archived logs", caught);
    }
}

std::wstring COracleManager::GetLogsFolder()
{
    try {
        return COracleConfig::Instance().tempLogPath;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to get oracle logs temp folder", caught);
    }
}

std::wstring COracleManager::EnumLogs()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Enumerating oracle logs");
        std::wstring document = oracle::EnumLogs(GetLogsFolder());
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to enum logs", caught);
    }
}

void COracleManager::RemoveLogsInTemp(const std::wstring& logsXml)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Removing oracle logs in temp: %1", util::wide_to_ansi(logsXml)));
        GetLogsFolder();
        RemoveLogs(logsXml);
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to remove logs in temp", caught);
    }
}

bool COracleManager::IsRestoreRequired()
{
    try {
        const bool required = win::file_exists(GetRestoreMetaPath());
        logging::oralib().info("Oracle restore is required: %1", util::bool_to_str(required));
        return required;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to check if restore required", caught);
    }
}

void COracleManager::DoRestore()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Performing oracle db restore");
        const int32_t waitSec = COracleConfig::Instance().restoreWaitInSec;
        logging::oralib().info("Waiting for %1 sec", util::int_to_str(waitSec));
        // A negative setting waits not at all rather than for ever as an unsigned count.
        if (waitSec > 0)
            Sleep(static_cast<DWORD>(waitSec) * 1000);
        const std::wstring path = GetRestoreMetaPath();
        std::wstring dbsXml;
        SOracleCredentials credentials;
        std::wstring osLogin;
        std::wstring osPassword;
        GetRestoreMeta(path, dbsXml, credentials, osLogin, osPassword);
        // Gone before any database is touched: a restore runs once, whatever happens below.
        RemoveRestoreMeta(path);
        if (osLogin.empty()) {
            FinishDbs(dbsXml, credentials, true);
        } else {
            win::CAccessToken token;
            win::logon_user(osLogin, osPassword, token);
            win::impersonate(token.handle());
            const auto reverting = win::scope_exit([] { win::revert(); });
            FinishDbs(dbsXml, credentials, true);
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to do db restore", caught);
    }
}

void COracleManager::Test()
{
    RunConsoleCheck(std::cout);
}

} // namespace oracle
} // namespace specific
