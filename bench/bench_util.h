// Helpers every benchmark program shares: a monotonic clock, failing the run
// with the program's own name, and the environment the simulated client reads.
#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace bench {

inline double now_seconds()
{
    static const LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// The benchmark's texts are ASCII: paths and SIDs it made itself.
inline std::string narrow(const std::wstring& text)
{
    return std::string(text.begin(), text.end());
}

[[noreturn]] inline void fail(const char* bench, const std::string& what)
{
    std::fprintf(stderr, "%s: %s\n", bench, what.c_str());
    std::exit(1);
}

// Sets a variable for this process and for the C runtime's copy of the environment.
inline void set_env(const std::wstring& name, const std::wstring& value)
{
    SetEnvironmentVariableW(name.c_str(), value.c_str());
    _wputenv((name + L"=" + value).c_str());
}

} // namespace bench
