#pragma once

#include "oracle/backup/backup_action.h"
#include "oracle/restore/plugged_db.h"

#include <memory>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

// The prepare document: the action taken on each database, which the finish
// reads back after the snapshot and a restored machine reads from the
// metadata file. Its text travels through the agent, so its form is fixed.
class CDbsBackupXml {
public:
    struct SDbPrepareInfo {
        std::wstring sid;
        std::wstring home;
        EBackupAction action = kActionFailure;
        SPluggedDbInfos pdbs;
        // "YYYY-MM-DDThh:mm:ss", UTC, when this database's prepare ended.
        std::wstring timeUtc;
        // Only known for the actions "backup" and "vss".
        std::wstring scn;
        // Never read back: an entry from FromXml has it empty.
        std::wstring errMsg;
        bool autostart = false;
    };
    using SDbPrepareInfos = std::vector<std::shared_ptr<SDbPrepareInfo>>;

    static std::wstring ToXml(const SDbPrepareInfos& entries);
    // Raises on a document without its root, or an entry without `pdbs`,
    // `autostart` or a numeric `action`.
    static SDbPrepareInfos FromXml(const std::wstring& xml);
};

} // namespace oracle
} // namespace specific
