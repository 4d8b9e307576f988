#pragma once

#include <string>
#include <vector>

namespace specific {
namespace oracle {

// A plugged database of a container as the prepare found it open: the mode
// it is to be reopened in after a restore.
struct SPluggedDbInfo {
    std::wstring name;
    // "READ ONLY", "READ WRITE" or "MIGRATE", as V$PDBS spells it.
    std::wstring mode;
};

using SPluggedDbInfos = std::vector<SPluggedDbInfo>;

} // namespace oracle
} // namespace specific
