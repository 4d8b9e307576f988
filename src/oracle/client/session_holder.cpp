#include "oracle/client/session_holder.h"

#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/guarded_thread.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/client/seh_guard.h"
#include "oracle/client/win_ora_interface.h"
#include "oracle/oracle_settings.h"

#include <cstdlib>

namespace specific {
namespace oracle {

namespace {

// Structured exceptions of a failed delay-load of the client.
constexpr unsigned long kDelayLoadModuleNotFound = 0xC06D007Eul;
constexpr unsigned long kDelayLoadProcNotFound = 0xC06D007Ful;

// The session init under the structured exception guard. What it raises is
// caught inside the guard and handed out through here: a C++ exception that
// left the guard's frame would leave its fault slot pointing into that frame.
struct SGuardedInit {
    COracleSessionHolder* holder;
    std::shared_ptr<exc::exc_base_t> error;
};

} // namespace

std::shared_ptr<COracleSessionHolder> MakeSessionHolder(const SOracleSid& sidRecord,
                                                        const SOracleCredentials& credentials)
{
    try {
        return std::make_shared<COracleSessionHolder>(sidRecord.sid, sidRecord.homePath, credentials,
                                                      false);
    } catch (const std::exception& e) {
        logging::oralib().error_exc(util::format_msg("Failed to create session holder for SID: %1",
                                                     util::wide_to_ansi_safe(sidRecord.sid)),
                                    e);
        return {};
    }
}

std::recursive_mutex& g_sessionInitLock()
{
    static std::recursive_mutex lock;
    return lock;
}

void SetEnvVariable(const std::wstring& name, const std::wstring& value)
{
    const std::string pair = util::wide_to_ansi(name + L"=" + value);
    logging::oralib().info("Setting env variable: %1", pair);
    _putenv(pair.c_str());
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
}

COracleSessionHolder::COracleSessionHolder(const std::wstring& sid, const std::wstring& homePath,
                                           const SOracleCredentials& credentials, bool prelimAuth)
    : homePath(homePath), sid(sid), credentials(credentials), prelimAuth(prelimAuth)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Creating oracle session holder: %1.",
                                           util::wide_to_ansi(sid));
        std::lock_guard<std::recursive_mutex> lock(g_sessionInitLock());
        CWinOraInterface::RefuseHungLoad();
        RunWithDeadline(OracleSettings().connectionTimeoutSec, [this] { InitThread(); },
                        {"Terminating oracle init thread",
                         "Failed to terminate oracle session init thread",
                         // Whatever session the thread made is never touched again.
                         [this] {
                             if (session)
                                 session->abandoned = true;
                         },
                         [] {
                             throw COracleInitTimeoutExc(
                                 "Failed to wait oracle session initialization");
                         }});
        if (!session)
            throw COracleSessionCreateExc("Failed to create oracle session holder.");
        if (!session->valid)
            throw COracleSessionCreateExc("Failed to create oracle session holder. Session is invalid.");
        session->roundTrips->Bound(util::wide_to_ansi_safe(sid), OracleSettings().connectionTimeoutSec);
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Failed to create oracle session holder. SID: %1.",
                             util::wide_to_ansi_safe(sid)),
            e);
    }
}

std::shared_ptr<COracleQuery> COracleSessionHolder::NewQuery() const
{
    return session->NewQuery();
}

void COracleSessionHolder::InitThread()
{
    try {
        SetEnvVariable(L"ORACLE_HOME", homePath);
        SetEnvVariable(L"ORACLE_SID", sid);
        CWinOraInterface::Instance();
        SGuardedInit init{this, nullptr};
        const unsigned long code = orasnap_seh_guarded_call(&InitSessionGuarded, &init);
        if (code == kDelayLoadModuleNotFound || code == kDelayLoadProcNotFound)
            logging::oralib().error("Failed to load OCI library");
        else if (code != 0)
            logging::oralib().error(
                "SEH exception has occurred while initializing Oracle session, exception code: %1",
                util::hex_str(static_cast<uint32_t>(code)));
        if (init.error)
            init.error->rethrow();
    } catch (const COracleClientCrashExc& e) {
        // As a fault the guard caught: the session stands invalid or not at all.
        logging::oralib().error(
            "SEH exception has occurred while initializing Oracle session, exception code: %1",
            util::hex_str(e.code()));
    } catch (const COracleClientLoadExc& e) {
        // No session comes of it, and that is the failure the caller sees.
        logging::oralib().error_exc("Failed to load OCI library", e, ClientLoadHint(e));
    } catch (const std::exception& e) {
        logging::oralib().error_exc("Oracle session init thread failed", e);
        throw;
    }
}

void COracleSessionHolder::InitSessionGuarded(void* init)
{
    auto* guarded = static_cast<SGuardedInit*>(init);
    try {
        guarded->holder->InitSession();
    } catch (const std::exception& e) {
        guarded->error = exc::to_exc_ptr(e);
    }
}

void COracleSessionHolder::InitSession()
{
    logging::log_operation_t operation(logging::oralib(), "Trying to initialize oracle interface");
    session = std::make_shared<COracleSession>(credentials);
    try {
        session->Init(prelimAuth ? oci::OCI_SYSDBA | oci::OCI_PRELIM_AUTH : oci::OCI_SYSDBA);
    } catch (const COracleExc& e) {
        if (credentials.login.empty())
            throw;
        logging::oralib().warning_exc(
            util::format_msg("Failed to connect as SYSDBA: insufficient privileges or channel "
                             "error. Connecting by default. Login: %1",
                             credentials.login),
            e);
        session = std::make_shared<COracleSession>(credentials);
        session->Init(prelimAuth ? oci::OCI_PRELIM_AUTH : oci::OCI_DEFAULT);
    }
    operation.ok();
}

} // namespace oracle
} // namespace specific
