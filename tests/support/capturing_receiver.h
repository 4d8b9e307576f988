#pragma once

#include "common/logging/log.h"

#include <memory>
#include <string>
#include <vector>

namespace test {

// A log receiver that keeps every block it is given, for assertions on the
// exact lines a piece of code writes.
class capturing_receiver_t : public logging::receiver::log_file_t {
public:
    explicit capturing_receiver_t(std::string line_end = "\n") : line_end_(std::move(line_end)) {}

    void write(const std::string& text) override { blocks.push_back(text); }
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return line_end_; }
    uint64_t size() override { return 0; }
    void compress_to(const std::shared_ptr<util::zip_writer_t>&) override {}

    std::string all() const;

    std::vector<std::string> blocks;

private:
    std::string path_;
    std::string line_end_;
};

// Attaches a capturing receiver to the process-wide logger for the life of
// the object, and puts the previous receiver back afterwards.
class log_capture_t {
public:
    log_capture_t();
    virtual ~log_capture_t();
    log_capture_t(const log_capture_t&) = delete;
    log_capture_t& operator=(const log_capture_t&) = delete;

    // Every line written so far, with the time and thread columns cut off.
    std::vector<std::string> texts() const;
    // The lines written since the last take, cut the same way: the test asserts
    // them whole, so a line it did not expect fails it.
    std::vector<std::string> take();

    std::shared_ptr<capturing_receiver_t> receiver;

protected:
    size_t taken_ = 0;

private:
    std::shared_ptr<logging::receiver::log_file_t> previous_;
};

// A capture that fails the running test when it ends with a warning or an
// error line nobody took: what the log reports as going wrong is part of what
// a test pins.
class strict_log_t : public log_capture_t {
public:
    ~strict_log_t() override;
};

} // namespace test
