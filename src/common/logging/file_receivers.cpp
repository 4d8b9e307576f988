#include "common/logging/file_receivers.h"

#include <iostream>
#include <vector>

#include "common/exc/exc.h"
#include "common/logging/zip_writer.h"
#include "common/strings/strings.h"
#include "common/win/last_error.h"

namespace win {

namespace {

// Compression reads the live file in blocks of this size.
constexpr uint32_t compress_block_size = 1048576;

} // namespace

win_log_file_t::win_log_file_t(const std::string& path) : path_(path)
{
    // The path came from an ANSI conversion; for plain ASCII both readings agree.
    const std::wstring wide = util::utf8_to_wide(path);
    unique_handle_t handle(CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE,
                                       FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!handle) {
        const DWORD code = GetLastError();
        if (code == ERROR_SHARING_VIOLATION || code == ERROR_LOCK_VIOLATION)
            throw exc::file_locked_exc_t(path);
        throw_last_error("Failed to create or open file [%1].", path);
    }
    file_ = attach_file(handle.release(), path);
    file_->seek_from_end(0);
}

void win_log_file_t::write(const std::string& text)
{
    if (writing_)
        return;
    writing_ = true;
    try {
        file_->write(static_cast<uint32_t>(text.size()), text.data());
        if (flush_each_write)
            file_->flush();
    } catch (const std::exception&) {
        // Disk full and the like: the line is lost, the caller goes on.
    }
    writing_ = false;
}

void win_log_file_t::compress_to(const std::shared_ptr<util::zip_writer_t>& writer)
{
    try {
        file_->seek_from_start(0);
        std::vector<char> block(compress_block_size);
        while (const uint32_t got = file_->read(block.data(), compress_block_size))
            writer->add(block.data(), got);
        file_->reset_size(0);
        file_->seek_from_start(0);
    } catch (const std::exception& e) {
        exc::throw_nested_trace(util::format_msg("Cannot compress log file. Log: [%1].", path_), e);
    }
}

} // namespace win

namespace logging {
namespace receiver {

namespace {

const char* const frame_line =
    "//////////////////////////////////////////////////////////////////////////";

} // namespace

stdout_log_file_t::stdout_log_file_t()
{
    std::cout << frame_line << std::endl;
}

stdout_log_file_t::~stdout_log_file_t()
{
    try {
        std::cout << frame_line << std::endl;
    } catch (...) {
        // A destructor never raises.
    }
}

void stdout_log_file_t::write(const std::string& text)
{
    std::cout << text << std::flush;
}

} // namespace receiver
} // namespace logging
