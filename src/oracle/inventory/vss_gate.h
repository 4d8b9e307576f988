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

using SOracleEntries = std::vector<SOracleEntry>;

// The process-wide answers about Oracle's VSS writer: which SIDs must have
// their writer left out, and whether VSS may be used at all.
class CVssGate {
public:
    // The verdict, cached for the life of the process once it is known.
    bool IsVssEnabled();
    // Exact membership: SIDs that differ only in case are different SIDs.
    bool IsSkipped(const std::wstring& sid) const;
    void AddSkippedSid(const std::wstring& sid);

    // The entries document of what was gathered about the databases. Nothing
    // in the library gathers entries yet, so this raises until something does.
    std::wstring GatherVssInfo() const;
    // Forgets the gathered entries.
    void DropEntries();

private:
    std::set<std::wstring> skipSids;
    std::shared_ptr<bool> vssEnabled;
    std::shared_ptr<const SOracleEntries> entries;
};

CVssGate& GetVssGate();

// The entries document: root OracleEntries, one OracleEntry per record.
std::wstring GatherVssInfoXml(const SOracleEntries& entries);

} // namespace oracle
} // namespace specific
