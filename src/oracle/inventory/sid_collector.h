#pragma once

#include "oracle/inventory/oracle_props.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSessionHolder;
struct SOracleSid;

// The verdict on one SID's collection.
struct CSidCollectionError {
    static CSidCollectionError Success();
    static CSidCollectionError Skipped();
    static CSidCollectionError Failed(bool isOpen, std::string description);

    bool isError = false;
    bool isOpen = false;
    bool isSkipped = false;
    std::string description;
};

// Fills the record of one instance over its session.
class COraSidCollector {
public:
    // `sid` belongs to the explore's list, which outlives the collector.
    COraSidCollector(std::shared_ptr<COracleSessionHolder> holder, const SOracleSid* sid);
    virtual ~COraSidCollector() = default;
    COraSidCollector(const COraSidCollector&) = delete;
    COraSidCollector& operator=(const COraSidCollector&) = delete;

    virtual COraclePropsPtr Gather() = 0;

protected:
    std::shared_ptr<COracleSessionHolder> holder;
    const SOracleSid* sid;
};

// The agent's own temporary instances and databases begin with this, case
// and all.
bool IsTemporarySid(const std::wstring& sid);
bool IsTemporaryName(const std::wstring& name);

} // namespace oracle
} // namespace specific
