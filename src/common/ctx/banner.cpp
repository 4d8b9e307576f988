#include "common/ctx/banner.h"

#include <windows.h>

#include "common/ctx/module_info.h"
#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "version.h"

namespace util {

namespace {

// The host process's executable: the agent that loaded the library.
void write_module_block()
{
    const logging::log_channel_t& log = logging::log();
    const std::wstring host = win::get_module_path();
    log.info("Path to the executable module: %1", wide_to_utf8(host));
    log.info("Module version: %1", get_version_string(host));
    const std::string comments = get_comments(host);
    if (!comments.empty())
        log.info("Comments: %1", comments);
}

// Each part of the banner stands alone: a failure is noted and the next runs.
template <typename Part>
void banner_part(Part part) noexcept
{
    try {
        part();
    } catch (const std::exception& e) {
        logging::emergency().error(logging::exception_text(e));
    }
}

} // namespace

void write_banner() noexcept
{
    const logging::log_channel_t& log = logging::log();
    log.info("");
    log.info("=============================================================================");
    log.info("{");
    logging::get_log()->increase_indent();
    banner_part(&write_module_block);
    banner_part([&] { log.info("OS version: %1", get_os_version_text()); });
    banner_part([&] {
        log.info("Process Id: %1", int_to_str(static_cast<uint32_t>(GetCurrentProcessId())));
    });
    logging::get_log()->decrease_indent();
    log.info("}");
    log.info("orasnap library version: " ORASNAP_VERSION_TEXT " (" ORASNAP_BUILD_TEXT ")");
}

} // namespace util
