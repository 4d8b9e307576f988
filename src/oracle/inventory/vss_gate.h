#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

// What was found about one database for the agent's VSS decision.
struct SOracleEntry {
    std::wstring sid;
    std::wstring dbName;
    std::wstring error;
    bool instanceOpen = false;
    bool dbActive = false;
    bool dbOpenReadonly = false;
    bool dbArchiveLogsOn = false;
    bool ok = false;
};

using OracleEntries = std::vector<SOracleEntry>;

// The entries that OracleGatherVssInfo reports. Only OracleVssStopLib changes
// it (it empties it); nothing in the library fills it.
extern std::shared_ptr<OracleEntries> g_oracleEntriesHolder;

// The process-wide answers about Oracle's VSS writer: which SIDs must have
// their writer left out, and whether VSS may be used at all.
class VssGate {
public:
    // The verdict, cached for the life of the process once it is known.
    bool IsVssEnabled();
    // Exact membership: SIDs that differ only in case are different SIDs.
    bool IsSkipped(const std::wstring& sid) const;
    void AddSkippedSid(const std::wstring& sid);

private:
    std::set<std::wstring> skipSids;
    std::shared_ptr<bool> vssEnabled;
};

VssGate& GetVssGate();

// The entries document: root OracleEntries, one OracleEntry per record.
std::wstring GatherVssInfoXml(const OracleEntries& entries);

} // namespace oracle
} // namespace specific
