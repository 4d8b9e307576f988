#pragma once

#include "common/logging/log.h"

#include <memory>
#include <string>
#include <vector>

namespace testing_support {

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

    std::string all() const
    {
        std::string text;
        for (const auto& block : blocks)
            text += block;
        return text;
    }

    std::vector<std::string> blocks;

private:
    std::string path_;
    std::string line_end_;
};

// Attaches a capturing receiver to the process-wide logger for the life of
// the object, and puts the previous receiver back afterwards.
class log_capture_t {
public:
    log_capture_t()
        : receiver(std::make_shared<capturing_receiver_t>()),
          previous_(logging::get_log()->receiver())
    {
        logging::get_log()->set_receiver(receiver);
    }
    ~log_capture_t() { logging::get_log()->set_receiver(previous_); }
    log_capture_t(const log_capture_t&) = delete;
    log_capture_t& operator=(const log_capture_t&) = delete;

    // The lines written, with the time and thread columns cut off.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> lines;
        const std::string all = receiver->all();
        size_t start = 0;
        while (start < all.size()) {
            size_t end = all.find('\n', start);
            if (end == std::string::npos)
                end = all.size();
            std::string line = all.substr(start, end - start);
            const size_t column = line.find("> ");
            lines.push_back(column == std::string::npos ? line : line.substr(column + 2));
            start = end + 1;
        }
        return lines;
    }

    std::shared_ptr<capturing_receiver_t> receiver;

private:
    std::shared_ptr<logging::receiver::log_file_t> previous_;
};

} // namespace testing_support
