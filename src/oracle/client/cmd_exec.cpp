#include "oracle/client/cmd_exec.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"

#include <cstdint>

namespace specific {
namespace oracle {

namespace {

std::string handle_number(const std::shared_ptr<COracleHandle>& handle)
{
    return util::int_to_str(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(handle->handle)));
}

} // namespace

COracleCmdExec::COracleCmdExec(const SOracleSessionHandles& session, const std::string& command)
    : env(session.env), serviceContext(session.serviceContext), roundTrips(session.roundTrips),
      command(command)
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Creating oracle cmd executor: %1", command);
        if (!env || !serviceContext || !roundTrips)
            throw exc::runtime_exc_t("The oracle session has no connection.");
        roundTrips->CheckUsable();
        statement = COracleHandle::Alloc(env, oci::OCI_HTYPE_STMT);
        env->Check(env->Ora().StmtPrepare(statement->As<oci::OCIStmt>(), env->ErrorHandle(), command));
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to create oracle cmd executor.", e);
    }
}

void COracleCmdExec::Bind(const std::string& name, void* value, oci::ub2 dty, oci::sb4 size)
{
    try {
        oci::OCIBind* bind = nullptr;
        env->Check(env->Ora().BindByName(statement->As<oci::OCIStmt>(), &bind, env->ErrorHandle(),
                                         name, value, size, dty));
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Failed to bind param [%1] to cmd executor, handle: %2", name,
                             handle_number(statement)),
            e);
    }
}

void COracleCmdExec::Execute()
{
    try {
        logging::log_operation_t operation(logging::oralib(),
                                           "Executing oracle cmd: %1", handle_number(statement));
        env->Check(roundTrips->Run(command, [&] {
            return env->Ora().StmtExecute(serviceContext->As<oci::OCISvcCtx>(),
                                          statement->As<oci::OCIStmt>(), env->ErrorHandle(), 1);
        }));
        operation.ok();
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Failed to execute oracle command, handle: %1", handle_number(statement)),
            e);
    }
}

} // namespace oracle
} // namespace specific
