#include "common/ctx/lib_ctx.h"

#include "common/logging/log.h"

namespace util {

namespace {

std::recursive_mutex& lib_ctx_mutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

} // namespace

CCommonLibCtx::CCommonLibCtx()
    : multiplexors(std::make_shared<io::CCoutMultiplexor>()),
      permissions(std::make_shared<security::CUnrestrictedFilesAccessPermissions>())
{
}

CCommonLibCtx::~CCommonLibCtx()
{
    try {
        std::lock_guard<std::mutex> lock(multiplexors->lock);
        if (!multiplexors->outputs.empty()) {
            logging::cli().info("Clearing collection of cout multiplexors.");
            multiplexors->outputs.clear();
        }
    } catch (const std::exception& e) {
        logging::log().error_exc(e);
    }
}

void CCommonLibCtx::check_access(const std::wstring& path)
{
    std::lock_guard<std::mutex> lock(permissions_lock);
    permissions->check_access(path);
}

void CCommonLibCtx::keep_log_name(const std::wstring& name)
{
    if (log_name_kept_)
        return;
    log_name_ = name;
    log_name_kept_ = true;
}

std::shared_ptr<CCommonLibCtx> get_lib_ctx()
{
    std::lock_guard<std::recursive_mutex> lock(lib_ctx_mutex());
    static std::shared_ptr<CCommonLibCtx> ctx;
    if (!ctx)
        ctx = std::make_shared<CCommonLibCtx>();
    return ctx;
}

} // namespace util
