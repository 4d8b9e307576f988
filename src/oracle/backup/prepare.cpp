#include "oracle/backup/prepare.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/xml/xml.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/db_info_collector.h"
#include "oracle/inventory/explore_db_config.h"
#include "oracle/inventory/oracle_homes.h"
#include "oracle/inventory/vss_gate.h"
#include "oracle/logs/arch_log_info.h"
#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

namespace {

// The agent's own temporary instances never get an entry.
const wchar_t kTemporaryPrefix[] = L"BrelmTmp";

// The SIDs whose writer the agent enabled, upper-cased. Only `sid` of each
// child of the root is read; an empty text names none without parsing.
std::set<std::wstring> enabled_writers(const std::wstring& dbsXml)
{
    std::set<std::wstring> writers;
    if (dbsXml.empty())
        return writers;
    util::xml_document_t document;
    document.parse(util::wide_to_utf8(dbsXml));
    const util::xml_node_t root = document.root();
    if (root.name() != "databases")
        throw exc::runtime_exc_t("There is no node with the specified name: [%1].", "databases");
    for (util::xml_node_t database = root.first_child(); !database.is_empty(); database = database.next_sibling())
        writers.insert(util::to_upper(util::utf8_to_wide(database.get_string("sid"))));
    return writers;
}

// Archive logging decides between the two ways of leaving a database alone.
EBackupAction untouched_action(bool archivelog)
{
    return archivelog ? kActionOracleNoAction : kActionOracleSkipVss;
}

// Decides and carries out the action; `context.action` moves as each step is
// reached, so a failure leaves the last one that was.
void prepare_db(SDbPrepareContext& context, const std::set<std::wstring>& enabledWriters,
                const SOracleCredentials& credentials)
{
    const auto holder = MakeSessionHolder(*context.sidInfo, credentials);
    if (!holder)
        return;
    const auto session = holder->GetSession();
    COracleInstanceStatus status;
    if (!status.IsInstanceOpen(session, context.sidInfo->isAsm) || !status.IsDbActive(session)) {
        context.action = kActionInactive;
        return;
    }
    bool readOnly = false;
    bool archivelog = false;
    session->GetDatabaseOptions(readOnly, archivelog);
    const bool vssEnabled = CheckVssWriter(context.sidInfo->sid, enabledWriters, session, archivelog);
    GatherPluggedDbs(session, context.pdbs);

    const COracleBaseConfig& settings = OracleSettings();
    if (settings.disableOracleProcessing ||
        (session->IsVersion10OrLower() && !settings.supportOracle10)) {
        context.action = untouched_action(archivelog);
        return;
    }
    if (!archivelog) {
        if (settings.skipNoArchiveLogDb) {
            context.action = kActionOracleSkipVss;
        } else {
            session->Shutdown();
            context.action = kActionShutdown;
        }
        return;
    }
    if (vssEnabled) {
        logging::oralib().info("Database is in correct state for VSS backup. Nothing to do.");
        context.action = kActionVss;
    } else {
        SwitchDbToBackupState(session);
        // Set before the SCN is read: a failing SCN query must still leave a
        // database in backup state to the finish.
        context.action = kActionBackup;
    }
    context.scn = session->NewQuery()->ExecValue("SELECT CURRENT_SCN FROM V$DATABASE", false);
}

std::wstring error_text(const std::exception& caught) noexcept
{
    try {
        return caught.what() != nullptr ? util::utf8_to_wide(caught.what()) : std::wstring();
    } catch (...) {
        return std::wstring();
    }
}

std::shared_ptr<CDbsBackupXml::SDbPrepareInfo> make_entry(const SDbPrepareContext& context,
                                                          const std::string& timeUtc)
{
    auto entry = std::make_shared<CDbsBackupXml::SDbPrepareInfo>();
    entry->sid = context.sidInfo->sid;
    entry->home = context.sidInfo->homePath;
    entry->action = context.action;
    entry->pdbs = context.pdbs;
    entry->timeUtc = util::ansi_to_wide(timeUtc);
    entry->scn = context.scn;
    entry->errMsg = context.errMsg;
    entry->autostart = context.sidInfo->isAutostart;
    return entry;
}

} // namespace

std::wstring PrepareDbs(const std::wstring& dbsXml, const std::wstring& exploreDbConfigXml,
                        const SOracleCredentials& credentials)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Preparing dbs for backup");
        const std::set<std::wstring> writers = enabled_writers(dbsXml);
        const COracleHomes homes(CExploreDbConfig(exploreDbConfigXml).excludes);
        CDbsBackupXml::SDbPrepareInfos entries;
        for (const SOracleSid& sid : homes.Sids()) {
            if (sid.sid.compare(0, wcslen(kTemporaryPrefix), kTemporaryPrefix) == 0 || sid.isAsm)
                continue;
            SDbPrepareContext context;
            context.sidInfo = std::make_shared<SOracleSid>(sid);
            PrepareDb(context, writers, credentials);
            entries.push_back(make_entry(context, CurrentUtcTimeText()));
        }
        std::wstring document = CDbsBackupXml::ToXml(entries);
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to prepare dbs for backup", caught);
    }
}

void PrepareDb(SDbPrepareContext& context, const std::set<std::wstring>& enabledWriters,
               const SOracleCredentials& credentials)
{
    const std::string sid = util::wide_to_ansi_safe(context.sidInfo->sid);
    try {
        logging::log_operation_t operation(logging::oralib(), "Prepare db for backup. Sid: %1", sid);
        prepare_db(context, enabledWriters, credentials);
        operation.ok();
    } catch (const std::exception& caught) {
        context.errMsg = error_text(caught);
        logging::oralib().error_exc(util::format_msg("Failed to prepare db for backup. Sid: %1", sid), caught);
    }
}

bool CheckVssWriter(const std::wstring& sid, const std::set<std::wstring>& enabledWriters,
                    const std::shared_ptr<COracleSession>& session, bool archivelog)
{
    bool enabled = enabledWriters.count(util::to_upper(sid)) != 0;
    logging::oralib().info("VSS writer for SID %1 is %2", util::wide_to_ansi_safe(sid),
                           std::string(enabled ? "enabled" : "disabled"));
    COracleInstanceStatus status;
    const bool active = status.IsDbActive(session);
    if (enabled && ShouldSkipDbFromVss(sid, session, active, archivelog)) {
        GetVssGate().AddSkippedSid(sid);
        enabled = false;
    }
    return enabled;
}

bool ShouldSkipDbFromVss(const std::wstring& sid, const std::shared_ptr<COracleSession>& session,
                         bool active, bool archivelog)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Checking if should skip db from VSS, sid: %1",
                                           util::wide_to_ansi_safe(sid));
        const bool version12 = session->IsVersion12OrHigher();
        const bool onAsm = session->valid && !session->instanceShutdown && session->IsDbOnAsm();
        const bool pluggable = CDbInfoCollector::IsPluggableDb(session);
        const bool skip = onAsm || (version12 && pluggable) || !active || !archivelog;
        const logging::log_channel_t& log = logging::oralib();
        log.info("Database settings:");
        log.info("Version 12 or higher: %1", util::bool_to_str(version12));
        log.info("Active: %1", util::bool_to_str(active));
        log.info("Archivelog: %1", util::bool_to_str(archivelog));
        log.info("Pluggable: %1", util::bool_to_str(pluggable));
        log.info("Located on ASM: %1", util::bool_to_str(onAsm));
        log.info("Skip from VSS: %1", util::bool_to_str(skip));
        operation.ok();
        return skip;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to check if should skip db from VSS", caught);
    }
}

void GatherPluggedDbs(const std::shared_ptr<COracleSession>& session, SPluggedDbInfos& pdbs)
{
    try {
        if (!CDbInfoCollector::IsPluggableDb(session))
            return;
        const auto result = session->NewQuery()->Exec("SELECT NAME, OPEN_MODE FROM V$PDBS", 2, true);
        for (const COracleRow& row : result->rows) {
            if (row.size() == 2 && (row[1] == L"READ ONLY" || row[1] == L"READ WRITE" || row[1] == L"MIGRATE"))
                pdbs.push_back({row[0], row[1]});
        }
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to gather plugged dbs info", caught);
    }
}

void SwitchDbToBackupState(const std::shared_ptr<COracleSession>& session)
{
    logging::log_operation_t operation(logging::oralib(), "Switching database to backup state");
    const auto query = session->NewQuery();
    const auto files = query->Exec("SELECT STATUS FROM V$BACKUP", 1, true);
    for (const COracleRow& row : files->rows) {
        if (!row.empty() && row[0] == L"ACTIVE") {
            logging::oralib().info("Database already in backup state");
            operation.ok();
            return;
        }
    }
    query->ExecNoResult("ALTER DATABASE BEGIN BACKUP");
    operation.ok();
}

} // namespace oracle
} // namespace specific
