#include "oracle/backup/finish.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/session_holder.h"
#include "oracle/restore/db_restore.h"

namespace specific {
namespace oracle {

namespace {

SOracleSid sid_record(const CDbsBackupXml::SDbPrepareInfo& entry)
{
    SOracleSid record;
    record.sid = entry.sid;
    record.homePath = entry.home;
    record.isAsm = false;
    record.isAutostart = entry.autostart;
    return record;
}

void finish_action(const CDbsBackupXml::SDbPrepareInfo& entry, const SOracleCredentials& credentials,
                   bool restoreMode)
{
    SOracleSid record = sid_record(entry);
    switch (entry.action) {
    case kActionFailure:
        logging::oralib().info("Database backup prepare finished with error");
        return;
    case kActionInactive:
        logging::oralib().info("Database is inactive. Nothing to do.");
        return;
    case kActionBackup:
        if (restoreMode)
            WaitAndRestoreDb(record, credentials, entry.pdbs);
        else
            EndDbBackup(record, credentials);
        return;
    case kActionShutdown:
        // On a restored machine a database that didn't start with the machine stays down.
        record.isAutostart = true;
        if (!restoreMode || entry.autostart)
            StartupDb(record, credentials, entry.pdbs);
        return;
    case kActionVss:
        if (restoreMode)
            WaitAndRestoreDb(record, credentials, entry.pdbs);
        else
            logging::oralib().info("Database backup performed by VSS. Nothing to do.");
        return;
    case kActionOracleSkipVss:
    case kActionOracleNoAction:
        // The line predates the other reasons for leaving a database alone, and stays.
        logging::oralib().info("Oracle version is not supported. Nothing to do.");
        return;
    }
    throw exc::runtime_exc_t("Unexpected backup action: %1", util::int_to_str(static_cast<int32_t>(entry.action)));
}

} // namespace

void FinishDbs(const std::wstring& dbsXml, const SOracleCredentials& credentials, bool restoreMode)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Finish dbs backup");
        for (const auto& entry : CDbsBackupXml::FromXml(dbsXml))
            FinishDb(*entry, credentials, restoreMode);
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to finish dbs backup", caught);
    }
}

void FinishDb(const CDbsBackupXml::SDbPrepareInfo& entry, const SOracleCredentials& credentials,
              bool restoreMode)
{
    const std::string sid = util::wide_to_ansi_safe(entry.sid);
    try {
        logging::log_operation_t operation(logging::oralib(), "Finish db backup. Sid: %1, action: %2, autostart: %3",
                                           sid, ActionToString(entry.action),
                                           util::bool_to_str(entry.autostart));
        finish_action(entry, credentials, restoreMode);
        operation.ok();
    } catch (const std::exception& caught) {
        logging::oralib().error_exc(util::format_msg("Failed to finish db backup. Sid: %1", sid), caught);
    }
}

void EndDbBackup(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    const auto holder = MakeSessionHolder(sidRecord, credentials);
    if (!holder)
        return;
    COracleInstanceStatus status;
    if (!status.IsInstanceOpen(holder->GetSession(), false) || !status.IsDbActive(holder->GetSession()))
        return;
    const auto query = holder->NewQuery();
    query->ExecNoResult("ALTER DATABASE END BACKUP");
    query->ExecNoResult("ALTER SYSTEM ARCHIVE LOG CURRENT");
}

} // namespace oracle
} // namespace specific
