#include "common/logging/zip_writer.h"

#include <windows.h>

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"

namespace util {

zip_writer_t::zip_writer_t(const std::string& path) : path_(path)
{
    try {
        file_ = gzopen(path.c_str(), "wb9");
        if (file_ == nullptr)
            win::throw_last_error();
    } catch (const std::exception& e) {
        exc::throw_nested(util::format_msg("Failed to open GZ archive [%1].", path_), e);
    }
}

zip_writer_t::~zip_writer_t()
{
    try {
        const int result = gzclose(file_);
        if (result != Z_OK)
            throw exc::runtime_exc_t("Error code: %1", util::int_to_str(static_cast<int32_t>(result)));
    } catch (const std::exception& e) {
        logging::log().error_exc(util::format_msg("Cannot close GZ archive [%1].", path_), e);
    }
}

void zip_writer_t::add(const void* data, uint32_t size)
{
    try {
        if (gzwrite(file_, data, size) == 0) {
            // Only a failure of the file system counts; zlib's own states pass.
            int code = Z_OK;
            gzerror(file_, &code);
            if (code == Z_ERRNO)
                win::throw_last_error();
        }
    } catch (const std::exception& e) {
        exc::throw_nested(util::format_msg("Cannot add data to the GZ archive [%1].", path_), e);
    }
}

} // namespace util
