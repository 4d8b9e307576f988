#pragma once

#include "oracle/inventory/sid_collector.h"

namespace specific {
namespace oracle {

// The collector of an ASM instance: its disks with the names of their groups.
class CAsmInfoCollector : public COraSidCollector {
public:
    using COraSidCollector::COraSidCollector;

    COraclePropsPtr Gather() override;
};

} // namespace oracle
} // namespace specific
