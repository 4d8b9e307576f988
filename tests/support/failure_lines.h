#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/exc/exc.h"

namespace test {

// Runs `call`, which must raise an exc::exc_base_t, and returns the texts of
// its lines, root cause first.
template <typename Call>
std::vector<std::string> failure_lines(Call call)
{
    try {
        call();
    } catch (const exc::exc_base_t& e) {
        std::vector<std::string> lines;
        for (const auto& line : e.lines())
            lines.push_back(line.text);
        return lines;
    }
    ADD_FAILURE() << "no exception was raised";
    return {};
}

// The what() of the exception that `call` raises.
template <typename Call>
std::string failure_text(Call call)
{
    try {
        call();
    } catch (const std::exception& caught) {
        return caught.what();
    }
    ADD_FAILURE() << "no exception was raised";
    return std::string();
}

} // namespace test
