#include "oracle/inventory/db_info_collector.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/db_param_files.h"
#include "oracle/logs/arch_log_files.h"
#include "oracle/logs/logs_backup.h"
#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

namespace {

const char kArchivedLogsSql[] =
    "SELECT NAME, FIRST_CHANGE#, NEXT_CHANGE#, BLOCKS*BLOCK_SIZE, \t\t\t%1, %2, SEQUENCE# "
    "FROM V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR'";

} // namespace

CDbInfoCollector::CDbInfoCollector(std::shared_ptr<COracleSessionHolder> holder,
                                   const SOracleSid* sid,
                                   std::shared_ptr<CExploreDbConfig::SDbLogRecInfo> recInfo,
                                   bool gatherLogs)
    : COraSidCollector(std::move(holder), sid), query(this->holder->NewQuery()),
      gatherLogs(gatherLogs), recInfo(std::move(recInfo))
{
}

COraclePropsPtr CDbInfoCollector::Gather()
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Gathering database properties for SID: [%1]",
                                           util::wide_to_ansi(sid->sid));
        auto props = std::make_shared<CDatabaseProps>();
        props->name = query->ExecValue("SELECT SYS_CONTEXT('USERENV','DB_NAME') FROM DUAL", false);
        props->sid = sid->sid;
        holder->GetSession()->GetDatabaseOptions(props->isReadonly, props->archiveLogsOn);
        props->config = GetConfigFilePath(*sid);
        props->pwdFilePath = GetPwdFilePath();
        GatherDbFiles(*props);
        GatherLogFileGroups(*props);
        GatherPdbs(*props);
        if (gatherLogs) {
            if (props->archiveLogsOn)
                GatherArchivedLogs(*props);
            GetPfileContent(*props);
        }
        props->id = query->ExecValue("SELECT DBID FROM V$DATABASE", true);
        props->lastScn = query->ExecValue("SELECT CURRENT_SCN FROM V$DATABASE", true);
        props->lastLogNum =
            query->ExecValue("SELECT MAX(SEQUENCE#) FROM V$ARCHIVED_LOG WHERE STATUS != 'D'", true);
        props->globalName = GetGlobalName();
        props->recoveryFileDest = query->ExecValue("SELECT NAME FROM V$RECOVERY_FILE_DEST", false);
        props->hasGuaranteedRestorePoints = HasGuaranteedRestorePoints();
        props->isCluster = IsClusterDb();
        GetListeners(*props);
        if (props->archiveLogsOn) {
            props->reverted = CheckDbReverted();
            GetMaxLogRecord(*props);
        }
        operation.ok();
        return props;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to gather database properties.", caught);
    }
}

void CDbInfoCollector::GatherDbFiles(CDatabaseProps& props)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Gathering database files");
        GatherFileList("SELECT F.MEMBER, L.BYTES FROM V$LOG L, V$LOGFILE F WHERE L.GROUP# = F.GROUP#",
                       props.logFiles);
        GatherFileList("SELECT NAME, BYTES FROM V$DATAFILE", props.dataFiles);
        GatherFileList("SELECT NAME, BYTES FROM V$TEMPFILE", props.tempFiles);
        GatherFileList("SELECT NAME, BLOCK_SIZE*FILE_SIZE_BLKS FROM V$CONTROLFILE",
                       props.controlFiles);
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to gather database properties.", caught);
    }
}

void CDbInfoCollector::GatherFileList(const std::string& sql, CDbFileList& files)
{
    const auto result = query->Exec(sql, 2, false);
    for (const COracleRow& row : result->rows) {
        if (row.size() != 2) {
            logging::oralib().warning("Failed to get file properties. Result is incorrect.");
            continue;
        }
        files.push_back(std::make_shared<CDbFileProps>(row[0], row[1]));
    }
}

void CDbInfoCollector::GatherLogFileGroups(CDatabaseProps& props)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Gathering log files groups");
        const auto result = query->Exec("SELECT MEMBER, GROUP# FROM V$LOGFILE", 2, false);
        for (const COracleRow& row : result->rows)
            if (row.size() == 2)
                props.logGroups[row[0]] = util::wide_to_ansi(row[1]);
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to gather log files groups", caught);
    }
}

bool CDbInfoCollector::IsPluggableDb(const std::shared_ptr<COracleSession>& session)
{
    try {
        if (!session->IsVersion12OrHigher())
            return false;
        return session->NewQuery()->ExecValue("SELECT CDB FROM V$DATABASE", true) == L"YES";
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to check if database is pluggable", caught);
        return false;
    }
}

void CDbInfoCollector::GatherPdbs(CDatabaseProps& props)
{
    try {
        if (!IsPluggableDb(holder->GetSession()))
            return;
        const auto result = query->Exec("SELECT NAME, GUID FROM V$PDBS", 2, false);
        for (const COracleRow& row : result->rows)
            if (row.size() == 2)
                props.pdbs.emplace_back(row[0], row[1]);
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Unable to gather plugged databases", caught);
    }
}

void CDbInfoCollector::GatherArchivedLogs(CDatabaseProps& props)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Gathering archived logs");
        COracleLogsBackup::FlushArchivedLogs(*holder);
        std::string sql = util::format_msg(kArchivedLogsSql, UtcTimeColumn("FIRST_TIME"),
                                           UtcTimeColumn("NEXT_TIME"));
        // The lower bound belongs in the statement: the server skips the old
        // rows, not this loop.
        if (recInfo && !recInfo->firstPassRecId.empty())
            sql += util::format_msg(" AND RECID >= %1", util::wide_to_ansi(recInfo->firstPassRecId));
        const auto session = holder->GetSession();
        const bool checkAsm = OracleSettings().checkAsmLogFileExistence;
        const auto result = query->Exec(sql, 7, false);
        for (const COracleRow& row : result->rows) {
            if (row.size() != 7)
                continue;
            auto log = std::make_shared<SArchLogInfo>();
            log->logPath = row[0];
            log->firstChange = row[1];
            log->nextChange = row[2];
            log->size = row[3];
            log->firstTimeUtc = row[4];
            log->nextTimeUtc = row[5];
            log->seqNum = row[6];
            if (IsFileExists(log->logPath, session, checkAsm))
                props.archivedLogs.push_back(std::move(log));
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to gather archived logs", caught);
    }
}

bool CDbInfoCollector::CheckDbReverted()
{
    try {
        if (!recInfo || recInfo->recId.empty() || recInfo->stamp.empty())
            return false;
        return query
            ->ExecValue(util::format_msg("SELECT RECID FROM V$ARCHIVED_LOG WHERE RECID=%1 AND STAMP=%2",
                                         util::wide_to_ansi(recInfo->recId),
                                         util::wide_to_ansi(recInfo->stamp)),
                        true)
            .empty();
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to check if db was reverted", caught);
        return false;
    }
}

void CDbInfoCollector::GetMaxLogRecord(CDatabaseProps& props)
{
    const COracleRow row = query->ExecFirstRow(
        "SELECT RECID, STAMP FROM V$ARCHIVED_LOG WHERE RECID=(SELECT MAX(RECID) FROM V$ARCHIVED_LOG)",
        2, true);
    if (row.size() != 2)
        return;
    props.maxLogRecId = row[0];
    props.maxLogStamp = row[1];
}

std::wstring CDbInfoCollector::GetGlobalName()
{
    const std::wstring uniqueName =
        query->ExecValue("SELECT SYS_CONTEXT('USERENV','DB_UNIQUE_NAME') FROM DUAL", false);
    const std::wstring domain =
        query->ExecValue("SELECT SYS_CONTEXT('USERENV','DB_DOMAIN') FROM DUAL", false);
    return domain.empty() ? uniqueName : util::format_msg(L"%1.%2", uniqueName, domain);
}

bool CDbInfoCollector::HasGuaranteedRestorePoints()
{
    try {
        return query->ExecValue(
                   "SELECT COUNT(*) FROM V$RESTORE_POINT WHERE GUARANTEE_FLASHBACK_DATABASE='YES'",
                   true) != L"0";
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to check if database has guaranteed restore points",
                                      caught);
        return false;
    }
}

bool CDbInfoCollector::IsClusterDb()
{
    try {
        return query->ExecValue("SELECT VALUE FROM V$PARAMETER WHERE NAME='cluster_database'",
                                true) == L"TRUE";
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to check if database is cluster database", caught);
        return false;
    }
}

void CDbInfoCollector::GetListeners(CDatabaseProps& props)
{
    const auto result =
        query->Exec("SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'", 2, false);
    for (const COracleRow& row : result->rows) {
        if (row.size() != 2)
            continue;
        if (util::starts_with(row[0], L"local_"))
            props.localListener = row[1];
        else if (util::starts_with(row[0], L"remote_"))
            props.remoteListener = row[1];
    }
}

} // namespace oracle
} // namespace specific
