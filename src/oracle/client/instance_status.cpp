#include "oracle/client/instance_status.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/guarded_thread.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_session.h"
#include "oracle/oracle_settings.h"

#include <memory>

namespace specific {
namespace oracle {

namespace {

const char* type_word(COracleInstanceStatus::StatusQueryType type)
{
    return type == COracleInstanceStatus::DatabaseStatus ? "database" : "instance";
}
} // namespace

bool COracleInstanceStatus::IsInstanceOpen(const std::shared_ptr<COracleSession>& session,
                                           bool assumeOpen)
{
    try {
        if (session->instanceShutdown) {
            logging::oralib().info("Oracle instance is shutdown");
            return false;
        }
        if (assumeOpen)
            return true;
        std::wstring status;
        GetStatus(status, session, InstanceStatus);
        return util::starts_with(status, L"OPEN") || util::starts_with(status, L"OPEN MIGRATE");
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to check if instance is open.", e);
    }
}

bool COracleInstanceStatus::IsDbActive(const std::shared_ptr<COracleSession>& session)
{
    try {
        std::wstring status;
        GetStatus(status, session, DatabaseStatus);
        return util::starts_with(status, L"ACTIVE");
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to check if oracle db is active.", e);
    }
}

void COracleInstanceStatus::GetStatus(std::wstring& status,
                                      const std::shared_ptr<COracleSession>& session,
                                      StatusQueryType type)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Getting oracle %1 status", type_word(type));
        // Shared with the thread, which may outlive this call if it can't be ended.
        const auto found = std::make_shared<std::wstring>();
        RunWithDeadline(OracleSettings().connectionTimeoutSec,
                        [session, type, found] {
                            RunUnderFaultGuard(
                                [&] { *found = StatusThread(*session, type); },
                                "SEH exception has occurred while checking oracle status, exception code: %1",
                                [&session] { session->abandoned = true; });
                        },
                        {"Terminating thread %1", "Failed to terminate thread %1",
                         [&session] { session->abandoned = true; },
                         [] {
                             throw COracleStatusQueryTimeoutExc(
                                 "Failed to wait checking if oracle instance is opened");
                         }});
        status = *found;
        logging::oralib().info("Oracle instance status: %1", util::wide_to_ansi_safe(status));
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Checking if oracle instance is open thread failed.", e);
    }
}

std::wstring COracleInstanceStatus::StatusThread(COracleSession& session, StatusQueryType type)
{
    try {
        try {
            return GetStatusImpl(session, type);
        } catch (const std::exception& e) {
            exc::throw_nested_trace("Getting oracle database thread failed", e);
        }
    } catch (const std::exception& e) {
        logging::oralib().error_exc(e);
        throw;
    }
}

std::wstring COracleInstanceStatus::GetStatusImpl(COracleSession& session, StatusQueryType type)
{
    const char* word = type_word(type);
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Getting oracle %1 status implementation", word);
        // The thread's deadline bounds the query. A second bound of the same
        // length would end the call just as the deadline ends the thread, and
        // the thread could then be killed outside the client.
        COracleRoundTrips::CUnbounded unbounded(*session.roundTrips);
        const std::shared_ptr<COracleQuery> query = session.NewQuery();
        std::wstring status;
        if (type == InstanceStatus)
            status = query->ExecValue("SELECT STATUS FROM V$INSTANCE", true);
        else if (type == DatabaseStatus)
            status = query->ExecValue("SELECT DATABASE_STATUS FROM V$INSTANCE", true);
        else
            throw exc::runtime_exc_t("Unknown query type: %1",
                                     util::int_to_str(static_cast<int32_t>(type)));
        logging::oralib().info("Oracle %1 status: %2", word, util::wide_to_ansi_safe(status));
        operation.ok();
        return status;
    } catch (const std::exception& e) {
        exc::throw_nested_trace(util::format_msg("Checking if oracle %1 is open thread failed", word), e);
    }
}

} // namespace oracle
} // namespace specific
