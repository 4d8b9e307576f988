// Helpers every benchmark program shares: a monotonic clock, failing the run
// with the program's own name, the environment the simulated client reads, and
// a folder of the run's own.
#pragma once

#include <windows.h>

#include <filesystem>

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

// A fresh folder in the temporary folder, named `stem` and this process's id.
// Wine hands out process ids again soon, so what an earlier run left under the
// same name is removed first.
inline std::wstring make_temp_folder(const wchar_t* stem)
{
    wchar_t temp[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH, temp);
    const std::wstring folder = std::wstring(temp) + stem + std::to_wstring(GetCurrentProcessId());
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    CreateDirectoryW(folder.c_str(), nullptr);
    return folder;
}

} // namespace bench
