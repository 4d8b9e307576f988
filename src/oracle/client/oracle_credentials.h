#pragma once

#include <string>

namespace specific {
namespace oracle {

// Database logon data, narrowed to the ANSI code page. An empty login means
// operating system authentication.
struct SOracleCredentials {
    std::string login;
    std::string password;
};

} // namespace oracle
} // namespace specific
