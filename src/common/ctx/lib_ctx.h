#pragma once

#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "common/ctx/files_access.h"
#include "common/win/impersonation.h"

namespace io {

// Output streams that mirror the console output of a tool; the library itself
// never adds one.
class CCoutMultiplexor {
public:
    std::mutex lock;
    std::vector<std::shared_ptr<std::ostream>> outputs;
};

} // namespace io

namespace util {

// The root of the foundation, one per process: owns what file operations
// consult before they touch a path.
class CCommonLibCtx {
public:
    CCommonLibCtx();
    ~CCommonLibCtx();
    CCommonLibCtx(const CCommonLibCtx&) = delete;
    CCommonLibCtx& operator=(const CCommonLibCtx&) = delete;

    // Asks the access object, under its lock, whether `path` may be touched.
    void check_access(const std::wstring& path);

    // The name of the library's log as the first initialisation gave it; later
    // names are ignored.
    void keep_log_name(const std::wstring& name);
    const std::wstring& log_name() const { return log_name_; }

    win::impersonation_tokens_map_t tokens;
    win::security_contexts_t security_contexts;
    std::shared_ptr<io::CCoutMultiplexor> multiplexors;
    std::shared_ptr<security::IFilesAccessPermissions> permissions;
    std::mutex permissions_lock;

private:
    bool log_name_kept_ = false;
    std::wstring log_name_;
};

// The process-wide context, made on first use.
std::shared_ptr<CCommonLibCtx> get_lib_ctx();

} // namespace util
