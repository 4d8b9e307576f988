#pragma once

#include <string>
#include <vector>

namespace host {

// The exit codes of orasnap.exe.
constexpr int kExitOk = 0;       // the library returned S_OK
constexpr int kExitFailed = 1;   // the library returned a failure; its error text is on standard error
constexpr int kExitUsage = 2;    // bad options, or an input file that cannot be read
constexpr int kExitNoLibrary = 3; // orasnap.dll cannot be loaded

// Runs the command line `args` (UTF-8, the program's name first) and returns the exit code.
int RunCommandLine(const std::vector<std::string>& args);

} // namespace host
