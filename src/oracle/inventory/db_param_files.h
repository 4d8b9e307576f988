#pragma once

#include <cstdint>
#include <string>

namespace specific {
namespace oracle {

struct SOracleSid;

// The instance's parameter file in the home's database folder, spfile before
// init file; "" when neither is there. Needs no session.
std::wstring GetConfigFilePath(const SOracleSid& sid);

// A new file name ({GUID}) in the agent's temporary folder, which is made
// when missing.
std::wstring MakeTempFilePath();

// Runs `command` through the command interpreter and waits at most
// `timeoutSec` seconds. A command still running then is ended with every
// process it started, and the answer is false.
bool RunCommandBounded(const std::wstring& command, int32_t timeoutSec);

} // namespace oracle
} // namespace specific
