#pragma once

#include <cstdint>

namespace specific {
namespace oracle {

// What the prepare did to one database, and so what the finish has to undo.
// Stored in the prepare document as its number; a document may carry any
// number, so every reader is ready for values outside the list.
enum EBackupAction : int32_t {
    kActionFailure = 0,
    kActionInactive = 1,
    kActionBackup = 2,
    kActionShutdown = 3,
    kActionVss = 4,
    kActionOracleSkipVss = 5,
    kActionOracleNoAction = 6,
};

// The word of an action in the log; "unknown" for a number outside the list.
inline const char* ActionToString(int32_t action)
{
    static const char* const words[] = {"failure", "inactive",      "backup",        "shutdown",
                                        "vss",     "oracleSkipVss", "oracleNoAction"};
    return action >= 0 && action < static_cast<int32_t>(sizeof(words) / sizeof(words[0]))
               ? words[action]
               : "unknown";
}

} // namespace oracle
} // namespace specific
