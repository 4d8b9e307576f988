#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <functional>
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

// Runs `call`, which must raise E, keeps its what() in `text`, and returns how
// long the call took in milliseconds.
template <typename E>
ULONGLONG raise_time(const std::function<void()>& call, std::string* text = nullptr)
{
    const ULONGLONG start = GetTickCount64();
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const E& e) {
        if (text != nullptr)
            *text = e.what();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "other exception: " << e.what();
    }
    return GetTickCount64() - start;
}

// With the connection timeout of one second (short_timeout.h): a call that hits
// it must be back within the deadline and a margin for thread start, kill and Wine.
constexpr ULONGLONG kDeadlineWithMarginMs = 2500;

} // namespace test
