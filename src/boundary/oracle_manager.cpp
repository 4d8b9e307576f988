#include "boundary/oracle_manager.h"

#include "boundary/console_check.h"
#include "boundary/oracle_config.h"
#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/xml/xml.h"
#include "oracle/backup/backup_meta.h"

#include <iostream>

namespace specific {
namespace oracle {

namespace {

// A document argument that the call cannot work without is parsed before any
// work starts, so that a malformed one fails the call with the parser's text.
void check_document(const std::wstring& xml)
{
    util::xml_document_t document;
    document.parse(util::wide_to_utf8(xml));
}

} // namespace

COracleManager& COracleManager::Instance()
{
    static COracleManager manager;
    return manager;
}

std::wstring COracleManager::ExploreInstances(bool, const SOracleCredentials&,
                                              const std::wstring&)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Exploring oracle instances");
        throw exc::runtime_exc_t("Exploring Oracle instances is not built yet.");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to explore Oracle instances", caught);
    }
}

void COracleManager::DeleteLogsByTime(const std::wstring&, const std::wstring& sid, int32_t,
                                      const SOracleCredentials&)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Deleting oracle logs by time. Sid: %1",
                                           util::wide_to_ansi(sid));
        throw exc::runtime_exc_t("Deleting archived logs by time is not built yet.");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to delete archived logs by time", caught);
    }
}

void COracleManager::DeleteLogsBySize(const std::wstring&, const std::wstring& sid, uint64_t,
                                      const SOracleCredentials&)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Deleting oracle logs by size. Sid: %1",
                                           util::wide_to_ansi(sid));
        throw exc::runtime_exc_t("Deleting archived logs by size is not built yet.");
    } catch (const std::exception& caught) {
        // The word "time" is the line agents have always seen for both deletions.
        exc::throw_nested_trace("Oracle manager failed to delete archived logs by time", caught);
    }
}

std::wstring COracleManager::PrepareDbsForBackup(const std::wstring& dbsXml, const std::wstring&,
                                                 const SOracleCredentials&, const std::wstring&,
                                                 const std::wstring&)
{
    try {
        // An empty list of enabled writers is valid and needs no parsing.
        if (!dbsXml.empty())
            check_document(dbsXml);
        throw exc::runtime_exc_t("Preparing databases for backup is not built yet.");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to prepare dbs for backup", caught);
    }
}

void COracleManager::FinishDbsBackup(const std::wstring& dbsXml, const SOracleCredentials&)
{
    try {
        check_document(dbsXml);
        throw exc::runtime_exc_t("Finishing the backup of databases is not built yet.");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to finish dbs backup", caught);
    }
}

std::wstring COracleManager::BackupLogs(const std::wstring&, const std::wstring& sid,
                                        const std::wstring&, const std::wstring&,
                                        const SOracleCredentials&)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Backup oracle logs. Sid: %1", util::wide_to_ansi(sid));
        throw exc::runtime_exc_t("Backing up archived logs is not built yet.");
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
        GetLogsFolder();
        throw exc::runtime_exc_t("Enumerating the logs folder is not built yet.");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Oracle manager failed to enum logs", caught);
    }
}

void COracleManager::RemoveLogsInTemp(const std::wstring& logsXml)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Removing oracle logs in temp: %1",
                                           util::wide_to_ansi(logsXml));
        GetLogsFolder();
        check_document(logsXml);
        throw exc::runtime_exc_t("Removing archived logs from the logs folder is not built yet.");
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
        throw exc::runtime_exc_t("Restoring databases is not built yet.");
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
