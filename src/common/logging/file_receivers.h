#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/logging/log.h"
#include "common/win/file.h"

namespace win {

// The live log file: opened for appending, shared for reading only, so that a
// second writer always fails and falls back to another name.
class win_log_file_t : public logging::receiver::log_file_t {
public:
    // Raises exc::file_locked_exc_t when another writer holds the file.
    explicit win_log_file_t(const std::string& path);

    // Never raises: a line that cannot be written is lost.
    void write(const std::string& text) override;
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return line_end_text_; }
    uint64_t size() override { return file_->size(); }
    // Moves the contents into the archive and empties the file in place.
    void compress_to(const std::shared_ptr<util::zip_writer_t>& writer) override;

private:
    std::string line_end_text_ = "\r\n";
    std::string path_;
    std::shared_ptr<win_file_t> file_;
    // A write that logs (a range-lock retry) must not write into itself.
    bool writing_ = false;
};

} // namespace win

namespace logging {
namespace receiver {

// Standard output, framed by a line of slashes when made and when destroyed.
class stdout_log_file_t : public stream_log_t {
public:
    stdout_log_file_t();
    ~stdout_log_file_t() override;
    stdout_log_file_t(const stdout_log_file_t&) = delete;
    stdout_log_file_t& operator=(const stdout_log_file_t&) = delete;

    void write(const std::string& text) override;
};

} // namespace receiver
} // namespace logging
