#include "oracle/client/oracle_session.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"

namespace specific {
namespace oracle {

namespace {

constexpr int32_t kInstanceDownCode = 1034;
} // namespace

COracleSession::COracleSession(const SOracleCredentials& credentials) : credentials(credentials) {}

COracleSession::~COracleSession()
{
    try {
        roundTrips.reset();
        if (abandoned || (env && env->GivenUp())) {
            for (const auto& handle : {session, server, serviceContext})
                if (handle)
                    handle->leakHandle = true;
            if (env)
                env->leakHandle = true;
        } else {
            // Logged even for a session that never reached the client; `valid`
            // and `serverAttached` are only ever set once `env` stands.
            logging::log_operation_t operation(logging::oralib(), "Destroying oracle session");
            if (valid) {
                const oci::sword status = env->Ora().SessionEnd(
                    serviceContext->As<oci::OCISvcCtx>(), env->ErrorHandle(),
                    session->As<oci::OCISession>());
                if (status != oci::OCI_SUCCESS)
                    logging::oralib().warning("Failed to end OCI session, error: %1",
                                              util::int_to_str(status));
            }
            if (serverAttached) {
                const oci::sword status =
                    env->Ora().ServerDetach(server->As<oci::OCIServer>(), env->ErrorHandle());
                if (status != oci::OCI_SUCCESS)
                    logging::oralib().warning("Failed to detach OCI server, error: %1",
                                              util::int_to_str(status));
            }
            operation.ok();
        }
        session.reset();
        server.reset();
        serviceContext.reset();
        env.reset();
    } catch (const std::exception& e) {
        logging::oralib().error_exc("Failed to destroy Oracle session.", e);
    }
}

void COracleSession::Init(oci::ub4 mode)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Initializing oracle session");
        env = COracleEnv::Create();
        serviceContext = COracleHandle::Alloc(env, oci::OCI_HTYPE_SVCCTX);
        roundTrips = std::make_shared<COracleRoundTrips>(env, serviceContext);
        server = COracleHandle::Alloc(env, oci::OCI_HTYPE_SERVER);
        InitServer();
        InitSessionHandle();

        const CWinOraInterface& ora = env->Ora();
        const oci::ub4 credentialKind =
            credentials.login.empty() ? oci::OCI_CRED_EXT : oci::OCI_CRED_RDBMS;
        const oci::sword result =
            ora.SessionBegin(serviceContext->As<oci::OCISvcCtx>(), env->ErrorHandle(),
                             session->As<oci::OCISession>(), credentialKind, mode);
        if (result == oci::OCI_SUCCESS)
            env->Check(ora.AttrSet(serviceContext->handle, oci::OCI_HTYPE_SVCCTX, session->handle,
                                   0, oci::OCI_ATTR_SESSION, env->ErrorHandle()));
        if (result == kInstanceDownCode || env->Check(result, kInstanceDownCode) == kInstanceDownCode)
            instanceShutdown = true;
        valid = true;
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to create oracle session.", e);
    }
}

void COracleSession::InitServer()
{
    try {
        const CWinOraInterface& ora = env->Ora();
        env->Check(ora.ServerAttach(server->As<oci::OCIServer>(), env->ErrorHandle(),
                                    oci::OCI_DEFAULT));
        serverAttached = true;
        env->Check(ora.AttrSet(serviceContext->handle, oci::OCI_HTYPE_SVCCTX, server->handle, 0,
                               oci::OCI_ATTR_SERVER, env->ErrorHandle()));
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to init server.", e);
    }
}

void COracleSession::InitSessionHandle()
{
    try {
        session = COracleHandle::Alloc(env, oci::OCI_HTYPE_SESSION);
        if (credentials.login.empty())
            return;
        const CWinOraInterface& ora = env->Ora();
        env->Check(ora.AttrSet(session->handle, oci::OCI_HTYPE_SESSION, &credentials.login[0],
                               static_cast<oci::ub4>(credentials.login.size()),
                               oci::OCI_ATTR_USERNAME, env->ErrorHandle()));
        env->Check(ora.AttrSet(session->handle, oci::OCI_HTYPE_SESSION,
                               const_cast<char*>(credentials.password.c_str()),
                               static_cast<oci::ub4>(credentials.password.size()),
                               oci::OCI_ATTR_PASSWORD, env->ErrorHandle()));
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to init session.", e);
    }
}

void COracleSession::GetDatabaseOptions(bool& isReadOnly, bool& isArchiveLog)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Getting oracle database options");
        isReadOnly = false;
        isArchiveLog = false;
        const COracleRow row =
            NewQuery()->ExecFirstRow("SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE", 2, true);
        for (const std::wstring& value : row) {
            if (util::starts_with(value, L"READ ONLY"))
                isReadOnly = true;
            if (util::starts_with(value, L"ARCHIVELOG"))
                isArchiveLog = true;
        }
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to get database options.", e);
    }
}

std::wstring COracleSession::GetDbName()
{
    if (!dbName.empty())
        return dbName;
    try {
        logging::log_operation_t operation(logging::oralib(), "Getting oracle database name");
        dbName = NewQuery()->ExecValue("SELECT NAME FROM V$DATABASE", true);
        operation.ok();
        return dbName;
    } catch (const std::exception& e) {
        exc::throw_nested_trace("OracleSession: failed to get database name.", e);
    }
}

bool COracleSession::IsDbOnAsm()
{
    const std::wstring name =
        NewQuery()->ExecValue("SELECT NAME FROM V$CONTROLFILE WHERE ROWNUM=1", false);
    return util::starts_with(name, L"+");
}

void COracleSession::LoadVersion()
{
    bool atMost10 = false;
    bool atLeast12 = false;
    if (valid && !instanceShutdown) {
        const std::wstring version = NewQuery()->ExecValue("SELECT VERSION FROM V$INSTANCE", false);
        const size_t point = version.find(L'.');
        if (point != std::wstring::npos) {
            const int32_t major = util::str_to_int(version.substr(0, point));
            atMost10 = major <= 10;
            atLeast12 = major >= 12;
        }
    }
    version10OrLower = std::make_shared<bool>(atMost10);
    version12OrHigher = std::make_shared<bool>(atLeast12);
}

bool COracleSession::IsVersion12OrHigher()
{
    if (!version12OrHigher)
        LoadVersion();
    return *version12OrHigher;
}

bool COracleSession::IsVersion10OrLower()
{
    if (!version10OrLower)
        LoadVersion();
    return *version10OrLower;
}

void COracleSession::MountAndOpen()
{
    // Opening may run crash recovery first: like startup, it isn't bounded.
    COracleRoundTrips::CUnbounded unbounded(*roundTrips);
    NewQuery()->ExecNoResult("ALTER DATABASE MOUNT");
    NewQuery()->ExecNoResult("ALTER DATABASE OPEN");
}

void COracleSession::Startup()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Starting up database");
        logging::oralib().info("Startup in NOMOUNT mode");
        COracleRoundTrips::CUnbounded unbounded(*roundTrips);
        env->Check(env->Ora().DBStartup(serviceContext->As<oci::OCISvcCtx>(), env->ErrorHandle()));
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to startup database", e);
    }
}

void COracleSession::Shutdown()
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Shutting down database");
        // A shutdown may rightly take minutes: none of its calls is bounded.
        COracleRoundTrips::CUnbounded unbounded(*roundTrips);
        // The results of the two shutdown calls are not checked: the
        // statements between them report what matters.
        env->Ora().DBShutdown(serviceContext->As<oci::OCISvcCtx>(), env->ErrorHandle(),
                              oci::OCI_DBSHUTDOWN_IMMEDIATE);
        NewQuery()->ExecNoResult("ALTER DATABASE CLOSE NORMAL");
        NewQuery()->ExecNoResult("ALTER DATABASE DISMOUNT");
        env->Ora().DBShutdown(serviceContext->As<oci::OCISvcCtx>(), env->ErrorHandle(),
                              oci::OCI_DBSHUTDOWN_FINAL);
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to shutdown database", e);
    }
}

std::shared_ptr<COracleQuery> COracleSession::NewQuery() const
{
    return std::make_shared<COracleQuery>(*this);
}

std::shared_ptr<COracleCmdExec> COracleSession::NewCmdExec(const std::string& command) const
{
    return std::make_shared<COracleCmdExec>(*this, command);
}

} // namespace oracle
} // namespace specific
