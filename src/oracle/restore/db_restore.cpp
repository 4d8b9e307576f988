#include "oracle/restore/db_restore.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "oracle/oracle_settings.h"

#include <windows.h>

#include <exception>

namespace specific {
namespace oracle {

namespace {

// A restored machine's services may still be starting its instances.
constexpr DWORD kWaitDbStartedPauseMs = 15000;
constexpr int32_t kStartupNoMountAttempts = 1;
constexpr DWORD kStartupRetryPauseMs = 10000;

// A holder on a session with plain authentication that raises when it can't be made.
std::shared_ptr<COracleSessionHolder> plain_holder(const SOracleSid& sidRecord,
                                                   const SOracleCredentials& credentials)
{
    return std::make_shared<COracleSessionHolder>(sidRecord.sid, sidRecord.homePath, credentials, false);
}

// The instance's status text, or "" when the instance is down.
std::wstring running_instance_status(const std::shared_ptr<COracleSessionHolder>& holder)
{
    COracleInstanceStatus status;
    if (!status.IsInstanceOpen(holder->GetSession(), true))
        return std::wstring();
    std::wstring text;
    status.GetStatus(text, holder->GetSession(), COracleInstanceStatus::InstanceStatus);
    return text;
}

// One attempt of the wait: true when the database needs nothing more.
bool try_restore(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    const auto holder = MakeSessionHolder(sidRecord, credentials);
    if (!holder)
        return false;
    const std::wstring status = running_instance_status(holder);
    if (util::starts_with(status, L"MOUNTED"))
        return EndRestoredDbBackup(holder, sidRecord.isAutostart);
    return util::starts_with(status, L"OPEN");
}

void restore_plugged_db(COracleQuery& query, const SPluggedDbInfo& pdb)
{
    const std::string name = util::wide_to_ansi(pdb.name);
    try {
        logging::log_operation_t operation(logging::oralib(), "Restoring plugged db: %1", name);
        const std::wstring openWord = pdb.mode == L"MIGRATE" ? L"UPGRADE" : pdb.mode;
        const std::wstring current =
            query.ExecValue(util::format_msg("SELECT OPEN_MODE FROM V$PDBS WHERE NAME = '%1'", name), true);
        // Compared with the stored mode: a database stored as MIGRATE opens as UPGRADE.
        if (current != pdb.mode)
            query.ExecNoResult(util::format_msg("ALTER PLUGGABLE DATABASE \"%1\" OPEN %2", name,
                                                util::wide_to_ansi(openWord)));
        operation.ok();
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(util::format_msg("Failed to restore pdb: %1", name), caught);
    }
}

} // namespace

void WaitAndRestoreDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
                      const SPluggedDbInfos& pdbs)
{
    const int32_t count = OracleSettings().waitDbStartedAttemptCount;
    bool done = false;
    for (int32_t attempt = 1; attempt <= count && !done; ++attempt) {
        done = try_restore(sidRecord, credentials);
        if (!done) {
            logging::oralib().info(
                "Unable to perform db restore. Wait for db initialization, attempt %1 of %2",
                util::int_to_str(attempt), util::int_to_str(count));
            Sleep(kWaitDbStartedPauseMs);
        }
    }
    if (!done)
        ForceRestoreDb(sidRecord, credentials);
    if (sidRecord.isAutostart)
        RestorePluggedDbs(sidRecord, credentials, pdbs);
}

bool EndRestoredDbBackup(const std::shared_ptr<COracleSessionHolder>& holder, bool autostart)
{
    try {
        const auto query = holder->NewQuery();
        // The backup must end while mounted: a database with files in backup mode doesn't open.
        query->ExecNoResult("ALTER DATABASE END BACKUP");
        if (!autostart)
            return true;
        query->ExecNoResult("ALTER DATABASE OPEN");
        query->ExecNoResult("ALTER SYSTEM ARCHIVE LOG CURRENT");
        return true;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to end backup", caught);
        return false;
    }
}

void ForceRestoreDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    {
        const auto holder = MakeSessionHolder(sidRecord, credentials);
        if (!holder || COracleInstanceStatus().IsInstanceOpen(holder->GetSession(), true))
            return;
    }
    if (!IsDbMounted(sidRecord, credentials))
        StartupMount(sidRecord, credentials);
    const auto holder = MakeSessionHolder(sidRecord, credentials);
    if (holder)
        EndRestoredDbBackup(holder, sidRecord.isAutostart);
}

bool IsDbMounted(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    try {
        const auto holder = MakeSessionHolder(sidRecord, credentials);
        return holder && util::starts_with(running_instance_status(holder), L"MOUNTED");
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to check if db is mounted", caught);
        return false;
    }
}

void StartupMount(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    logging::log_operation_t operation(logging::oralib(), "Startup mount, sid: %1",
                                       util::wide_to_ansi(sidRecord.sid));
    StartupNoMount(sidRecord, credentials);
    plain_holder(sidRecord, credentials)->NewQuery()->ExecNoResult("ALTER DATABASE MOUNT");
    operation.ok();
}

void StartupNoMount(const SOracleSid& sidRecord, const SOracleCredentials& credentials)
{
    std::exception_ptr kept;
    for (int32_t attempt = 1; attempt <= kStartupNoMountAttempts; ++attempt) {
        try {
            COracleSessionHolder(sidRecord.sid, sidRecord.homePath, credentials, true)
                .GetSession()
                ->Startup();
            kept = nullptr;
            break;
        } catch (const std::exception&) {
            kept = std::current_exception();
            logging::oralib().info("Unable to start database, attempt %1 of %2",
                                   util::int_to_str(attempt), util::int_to_str(kStartupNoMountAttempts));
            Sleep(kStartupRetryPauseMs);
        }
    }
    if (kept)
        std::rethrow_exception(kept);
}

void StartupDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
               const SPluggedDbInfos& pdbs)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Starting up oracle db");
        {
            const auto holder = plain_holder(sidRecord, credentials);
            if (!COracleInstanceStatus().IsInstanceOpen(holder->GetSession(), false)) {
                StartupNoMount(sidRecord, credentials);
                plain_holder(sidRecord, credentials)->GetSession()->MountAndOpen();
            }
        }
        // Written after a real startup too: readers of the log know it so.
        logging::oralib().info("No need to startup database: instance is open");
        RestorePluggedDbs(sidRecord, credentials, pdbs);
        operation.ok();
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to startup db: %1", util::wide_to_ansi_safe(sidRecord.sid)), caught);
    }
}

void RestorePluggedDbs(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
                       const SPluggedDbInfos& pdbs)
{
    if (pdbs.empty())
        return;
    logging::log_operation_t operation(logging::oralib(), "Restoring plugged dbs");
    const auto holder = MakeSessionHolder(sidRecord, credentials);
    if (!holder || !COracleInstanceStatus().IsInstanceOpen(holder->GetSession(), true))
        return;
    for (const SPluggedDbInfo& pdb : pdbs)
        restore_plugged_db(*holder->NewQuery(), pdb);
    operation.ok();
}

} // namespace oracle
} // namespace specific
