#include "oracle/inventory/vss_functionality.h"

#include <memory>
#include <vector>

#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/service.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/session_holder.h"
#include "oracle/inventory/oracle_homes.h"

namespace specific {
namespace oracle {

bool CheckDbActiveForVss(const std::wstring& sid, const std::wstring& homePath)
{
    const std::string narrowSid = util::wide_to_ansi_safe(sid);
    try {
        const COracleSessionHolder holder(sid, homePath, SOracleCredentials(), false);
        const std::shared_ptr<COracleSession> session = holder.GetSession();
        COracleInstanceStatus status;
        if (!status.IsInstanceOpen(session, false))
            return true;
        return status.IsDbActive(session);
    } catch (const COracleInitTimeoutExc& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed create oracle session: timeout. Sid: %1", narrowSid), caught);
        return false;
    } catch (const COracleStatusQueryTimeoutExc& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed query oracle database status: timeout. Sid: %1", narrowSid),
            caught);
        return false;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to check if oracle db is active, sid: %1", narrowSid), caught);
        return true;
    }
}

bool IsVssWriterServiceEnabled(const std::wstring& sid)
{
    try {
        const std::wstring name = L"OracleVssWriter" + sid;
        const win::win_svc_t service(std::make_shared<win::win_scm_t>(), name.c_str());
        const DWORD state = service.query_state();
        logging::oralib().info("Found service: %1, status: %2", util::wide_to_ansi(name),
                               util::int_to_str(state));
        return state != SERVICE_STOPPED && state != SERVICE_PAUSED;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to check if VSS oracle writer service enabled, sid: %1",
                             util::wide_to_ansi_safe(sid)),
            caught);
        return false;
    }
}

bool ComputeVssEnabled()
{
    logging::log_operation_t operation(logging::oralib(),
                                       "Checking if oracle VSS must be disabled");
    bool enabled = true;
    // Exclusions don't apply: an excluded database can still spoil a snapshot.
    const COracleHomes homes(std::vector<std::wstring>{});
    for (const SOracleSid& sid : homes.Sids()) {
        if (sid.isAsm)
            continue;
        if (!CheckDbActiveForVss(sid.sid, sid.homePath) && IsVssWriterServiceEnabled(sid.sid)) {
            enabled = false;
            break;
        }
    }
    logging::oralib().info("VSS must be %1", enabled ? "enabled" : "disabled");
    operation.ok();
    return enabled;
}

} // namespace oracle
} // namespace specific
