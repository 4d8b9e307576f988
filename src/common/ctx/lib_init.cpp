#include "common/ctx/lib_init.h"

#include "common/ctx/banner.h"
#include "common/ctx/lib_ctx.h"
#include "common/logging/log_files.h"
#include "common/strings/strings.h"

namespace util {

std::string init_common_lib(const std::wstring& log_name, const std::vector<std::wstring>& args)
{
    try {
        get_lib_ctx()->keep_log_name(log_name);
        std::wstring path;
        const int log_arg = index_of_arg(args, L"-log");
        if (log_arg >= 0 && static_cast<size_t>(log_arg) + 1 < args.size())
            path = args[static_cast<size_t>(log_arg) + 1];
        else
            path = logging::default_log_path(log_name);
        const bool quiet = index_of_arg(args, L"-verbose") < 0;
        logging::setup_log(wide_to_ansi(path), quiet, true);
        write_banner();
        return wide_to_ansi(path);
    } catch (const std::exception&) {
        return std::string();
    }
}

} // namespace util
