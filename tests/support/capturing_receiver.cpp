#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

namespace test {

std::string capturing_receiver_t::all() const
{
    std::string text;
    for (const auto& block : blocks)
        text += block;
    return text;
}

log_capture_t::log_capture_t()
    : receiver(std::make_shared<capturing_receiver_t>()), previous_(logging::get_log()->receiver())
{
    logging::get_log()->set_receiver(receiver);
}

log_capture_t::~log_capture_t()
{
    logging::get_log()->set_receiver(previous_);
}

std::vector<std::string> log_capture_t::texts() const
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

std::vector<std::string> log_capture_t::take()
{
    const std::vector<std::string> lines = texts();
    const size_t from = taken_ < lines.size() ? taken_ : lines.size();
    taken_ = lines.size();
    return std::vector<std::string>(lines.begin() + static_cast<std::ptrdiff_t>(from), lines.end());
}

strict_log_t::~strict_log_t()
{
    for (const std::string& line : take())
        if (line.find("WARN|") != std::string::npos || line.find("ERR |") != std::string::npos)
            ADD_FAILURE() << "a log line nobody asserted: " << line;
}

} // namespace test
