#include "oracle/inventory/oracle_explorer.h"

#include "common/ctx/module_info.h"
#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"
#include "oracle/client/guarded_thread.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/asm_info_collector.h"
#include "oracle/inventory/db_info_collector.h"
#include "oracle/inventory/db_param_files.h"
#include "oracle/inventory/oracle_homes.h"
#include "oracle/inventory/vss_gate.h"
#include "oracle/oracle_settings.h"

#include <map>

namespace specific {
namespace oracle {

namespace {

const char kInvalidState[] = "Oracle database instance state is not valid for property collection";

std::wstring fully_qualified_name()
{
    DWORD size = 0;
    GetComputerNameExW(ComputerNameDnsFullyQualified, nullptr, &size);
    std::wstring name(size + 1, L'\0');
    DWORD length = static_cast<DWORD>(name.size());
    if (!GetComputerNameExW(ComputerNameDnsFullyQualified, &name[0], &length))
        throw exc::win_sys_exc_t("Failed to retrieve fully qualified computer name (FQDN).",
                                 GetLastError());
    name.resize(length);
    return name;
}

} // namespace

void SetDatabaseVssState(const COracleSessionHolder& holder)
{
    try {
        bool isReadOnly = false;
        bool isArchiveLog = false;
        holder.GetSession()->GetDatabaseOptions(isReadOnly, isArchiveLog);
        if (!isArchiveLog)
            GetVssGate().AddSkippedSid(holder.GetSid());
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to set database VSS state", caught);
    }
}

COracleExplorer::COracleExplorer(bool exploreFlag, SOracleCredentials credentials,
                                 CExploreDbConfig dbConfig)
    : exploreFlag(exploreFlag), credentials(std::move(credentials)), dbConfig(std::move(dbConfig))
{
}

std::wstring COracleExplorer::Explore()
{
    try {
        const COracleHomes homes(dbConfig.excludes);
        std::shared_ptr<util::xml_document_t> document;
        if (homes.Sids().empty()) {
            document = std::make_shared<util::xml_document_t>("OracleOverall");
        } else {
            std::map<std::wstring, std::vector<SOracleSid>> byHome;
            for (const SOracleSid& sid : homes.Sids())
                byHome[sid.homeName].push_back(sid);
            COverallProps overall;
            for (const auto& [name, sids] : byHome) {
                auto home = std::make_shared<CHomeProps>(name);
                if (GatherHomeProps(sids, *home))
                    overall.homes.push_back(home);
            }
            overall.env = CollectEnvProps();
            document = overall.ToXml();
        }
        const std::string text = document->to_string();
        logging::oralib().info(text);
        return util::utf8_to_wide(text);
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to explore oracle instances.", caught);
    }
}

bool COracleExplorer::GatherHomeProps(const std::vector<SOracleSid>& sids, CHomeProps& home)
{
    uint32_t collected = 0;
    bool anyAsm = false;
    bool anySkipped = false;
    try {
        for (const SOracleSid& sid : sids) {
            if (IsTemporarySid(sid.sid))
                continue;
            anyAsm = anyAsm || sid.isAsm;
            const CSidCollectionError verdict = GatherSidProps(sid, home);
            if (verdict.isSkipped) {
                anySkipped = true;
                continue;
            }
            if (!verdict.isError)
                ++collected;
            else if (!sid.isAsm)
                FillErrorDatabaseProps(sid, home, verdict);
        }
    } catch (const std::exception& caught) {
        logging::oralib().error_exc("Failed to gather props for oracle home", caught);
    }
    return collected > 0 || !(anyAsm || anySkipped);
}

CSidCollectionError COracleExplorer::GatherSidProps(const SOracleSid& sid, CHomeProps& home)
{
    const bool disabled = OracleSettings().disableOracleProcessing;
    bool isOpen = false;
    try {
        const auto holder =
            std::make_shared<COracleSessionHolder>(sid.sid, sid.homePath, credentials, false);
        const auto session = holder->GetSession();
        COracleInstanceStatus status;
        isOpen = status.IsInstanceOpen(session, sid.isAsm);
        if (isOpen && status.IsDbActive(session)) {
            // A client that faults takes this database down with it, not the explore.
            CSidCollectionError verdict;
            RunUnderFaultGuard([&] { verdict = CollectOpenSid(holder, sid, home); },
                               "SEH exception has occurred while collecting database properties, "
                               "exception code: %1",
                               [&session] { session->abandoned = true; });
            return verdict;
        }
        if (disabled)
            return CSidCollectionError::Skipped();
        logging::oralib().warning(kInvalidState);
        return CSidCollectionError::Failed(isOpen, kInvalidState);
    } catch (const std::exception& caught) {
        logging::oralib().error_exc(
            util::format_msg("Failed to gather database props for SID: %1",
                             util::wide_to_ansi_safe(sid.sid)),
            caught);
        if (disabled)
            return CSidCollectionError::Skipped();
        return CSidCollectionError::Failed(isOpen, caught.what());
    }
}

CSidCollectionError COracleExplorer::CollectOpenSid(const std::shared_ptr<COracleSessionHolder>& holder,
                                                    const SOracleSid& sid, CHomeProps& home)
{
    if (ShouldSkipCollection(*holder, sid.isAsm)) {
        SetDatabaseVssState(*holder);
        logging::oralib().info("Database (SID: %1) skipped from data collection",
                               util::wide_to_ansi_safe(sid.sid));
        return CSidCollectionError::Skipped();
    }
    if (home.version.empty()) {
        const auto query = holder->NewQuery();
        home.version = query->ExecValue("SELECT version FROM V$INSTANCE", true);
        home.path = sid.homePath;
        home.desc = query->ExecValue("SELECT * FROM V$VERSION WHERE BANNER LIKE 'Oracle%'", true);
    }
    home.children.push_back(MakeCollector(holder, sid)->Gather());
    return CSidCollectionError::Success();
}

bool COracleExplorer::ShouldSkipCollection(const COracleSessionHolder& holder, bool isAsm)
{
    if (OracleSettings().disableOracleProcessing)
        return true;
    const auto session = holder.GetSession();
    if (session->IsVersion10OrLower() && !OracleSettings().supportOracle10)
        return true;
    return !isAsm && IsTemporaryName(session->GetDbName());
}

std::shared_ptr<COraSidCollector>
COracleExplorer::MakeCollector(const std::shared_ptr<COracleSessionHolder>& holder,
                               const SOracleSid& sid)
{
    if (sid.isAsm)
        return std::make_shared<CAsmInfoCollector>(holder, &sid);
    return std::make_shared<CDbInfoCollector>(holder, &sid, dbConfig.FindRecInfo(sid.sid),
                                              exploreFlag);
}

void COracleExplorer::FillErrorDatabaseProps(const SOracleSid& sid, CHomeProps& home,
                                             const CSidCollectionError& verdict)
{
    try {
        auto props = std::make_shared<CDatabaseProps>();
        props->isError = true;
        props->errorDescription = util::ansi_to_wide_safe(verdict.description);
        props->sid = sid.sid;
        props->config = GetConfigFilePath(sid);
        if (home.version.empty())
            home.path = sid.homePath;
        home.children.push_back(props);
    } catch (const std::exception& caught) {
        logging::oralib().error_exc(
            util::format_msg("Failed to fill error database props for SID: %1",
                             util::wide_to_ansi_safe(sid.sid)),
            caught);
    }
}

std::shared_ptr<CEnvProps> COracleExplorer::CollectEnvProps()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Collecting environment properties");
        const std::wstring osName = util::ansi_to_wide(util::get_os_version_text());
        auto env = std::make_shared<CEnvProps>(fully_qualified_name(), osName);
        operation.ok();
        return env;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to collect environment properties", caught);
    }
}

} // namespace oracle
} // namespace specific
