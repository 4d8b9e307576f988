#pragma once

#include <string>

namespace specific {
namespace oracle {

// One Oracle instance installed on this machine.
struct SOracleSid {
    // As the service's image path spells it; the case is left as found.
    std::wstring sid;
    // ORACLE_HOME of the home, given to the session as its home.
    std::wstring homePath;
    // ORACLE_HOME_NAME of the home, by which instances are grouped into homes.
    std::wstring homeName;
    bool isAsm = false;
    // Belongs to the home, not to the SID: see COracleHomes::ReadHomeAutostart.
    bool isAutostart = true;
};

} // namespace oracle
} // namespace specific
