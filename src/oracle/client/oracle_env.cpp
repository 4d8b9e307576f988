#include "oracle/client/oracle_env.h"

#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "oracle/client/oracle_exc.h"

#include <cstring>
#include <utility>

namespace specific {
namespace oracle {

COracleError::COracleError(std::shared_ptr<CWinOraInterface> ora, oci::OCIError* handle)
    : handle(handle), ora_(std::move(ora))
{
}

COracleError::~COracleError()
{
    if (handle != nullptr)
        ora_->HandleFree(handle, oci::OCI_HTYPE_ERROR);
}

std::shared_ptr<COracleEnv> COracleEnv::Create()
{
    return Create(CWinOraInterface::Instance());
}

std::shared_ptr<COracleEnv> COracleEnv::Create(const std::shared_ptr<CWinOraInterface>& ora)
{
    oci::OCIEnv* env = nullptr;
    const oci::sword envStatus = ora->EnvCreate(&env, oci::OCI_THREADED);
    if (envStatus != oci::OCI_SUCCESS)
        throw exc::runtime_exc_t("Failed to create OCI env. Code: %1", util::int_to_str(envStatus));

    void* error = nullptr;
    const oci::sword errorStatus = ora->HandleAlloc(env, &error, oci::OCI_HTYPE_ERROR);
    if (errorStatus != oci::OCI_SUCCESS) {
        ora->HandleFree(env, oci::OCI_HTYPE_ENV);
        throw exc::runtime_exc_t("Failed to create OCI error. Code: %1",
                                 util::int_to_str(errorStatus));
    }
    auto owner = std::make_shared<COracleError>(ora, static_cast<oci::OCIError*>(error));
    return std::make_shared<COracleEnv>(ora, env, std::move(owner));
}

COracleEnv::COracleEnv(std::shared_ptr<CWinOraInterface> ora, oci::OCIEnv* handle,
                       std::shared_ptr<COracleError> error)
    : handle(handle), error(std::move(error)), ora_(std::move(ora))
{
}

COracleEnv::~COracleEnv()
{
    // The error handle goes even for an abandoned session; the environment
    // of one is left to the end of the process. A given-up session keeps both.
    const bool givenUp = GivenUp();
    if (givenUp && error)
        error->handle = nullptr;
    error.reset();
    if (!leakHandle && !givenUp && handle != nullptr)
        ora_->HandleFree(handle, oci::OCI_HTYPE_ENV);
}

void COracleEnv::GiveUp(const std::string& reason)
{
    std::lock_guard<std::mutex> lock(fateLock_);
    if (giveUpReason_.empty())
        giveUpReason_ = reason;
}

bool COracleEnv::GivenUp() const
{
    {
        std::lock_guard<std::mutex> lock(fateLock_);
        if (!giveUpReason_.empty())
            return true;
    }
    return ora_->Crashed(handle) || ora_->Crashed(ErrorHandle());
}

std::string COracleEnv::GiveUpReason() const
{
    std::lock_guard<std::mutex> lock(fateLock_);
    return giveUpReason_.empty() ? "The Oracle client crashed in an earlier call." : giveUpReason_;
}

int32_t COracleEnv::Check(oci::sword status, int32_t ignoredCode)
{
    if (status == oci::OCI_ERROR) {
        oci::sb4 code = 0;
        oci::OraText buffer[2048] = {};
        ora_->ErrorGet(ErrorHandle(), &code, buffer, sizeof(buffer));
        if (code == ignoredCode)
            return code;
        const char* text = reinterpret_cast<const char*>(buffer);
        const std::string message(text, strnlen(text, sizeof(buffer)));
        lastError = message.empty() ? L"Undefined Oracle error has occurred"
                                    : util::ansi_to_wide(message);
        throw COracleExc(util::format_msg("Oracle error has occurred. %1",
                                          util::wide_to_ansi(lastError)),
                         static_cast<uint32_t>(code));
    }
    if (status == oci::OCI_SUCCESS || status == oci::OCI_SUCCESS_WITH_INFO ||
        status == oci::OCI_NO_DATA)
        return 0;
    lastError = util::format_msg(L"Unexpected Oracle error has occurred. Code: %1",
                                 util::int_to_wstr(static_cast<uint32_t>(status)));
    throw exc::runtime_exc_t(util::wide_to_ansi(lastError));
}

std::shared_ptr<COracleHandle> COracleHandle::Alloc(const std::shared_ptr<COracleEnv>& env,
                                                    oci::ub4 type)
{
    void* handle = nullptr;
    env->Check(env->Ora().HandleAlloc(env->handle, &handle, type));
    return std::make_shared<COracleHandle>(env->OraPtr(), handle, type, env);
}

std::shared_ptr<COracleHandle> COracleHandle::Wrap(const std::shared_ptr<COracleEnv>& env,
                                                   void* handle, oci::ub4 type)
{
    return std::make_shared<COracleHandle>(env->OraPtr(), handle, type, env);
}

COracleHandle::COracleHandle(std::shared_ptr<CWinOraInterface> ora, void* handle, oci::ub4 type,
                             std::shared_ptr<const COracleEnv> owner)
    : handle(handle), type(type), ora_(std::move(ora)), owner_(std::move(owner))
{
}

COracleHandle::~COracleHandle()
{
    if (handle != nullptr && !leakHandle && !(owner_ && owner_->GivenUp()))
        ora_->HandleFree(handle, type);
}

} // namespace oracle
} // namespace specific
