#pragma once

#include "oracle/client/oracle_credentials.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/inventory/explore_db_config.h"
#include "oracle/inventory/oracle_props.h"
#include "oracle/inventory/sid_collector.h"

#include <memory>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

class COracleSessionHolder;

// Walks every Oracle instance of the machine, one after the other, and
// builds the inventory document. A failure with one SID becomes that
// database's error form (or, for ASM, its absence); the others go on.
class COracleExplorer {
public:
    COracleExplorer(bool exploreFlag, SOracleCredentials credentials, CExploreDbConfig dbConfig);

    // The inventory document.
    std::wstring Explore();

private:
    bool GatherHomeProps(const std::vector<SOracleSid>& sids, CHomeProps& home);
    CSidCollectionError GatherSidProps(const SOracleSid& sid, CHomeProps& home);
    CSidCollectionError CollectOpenSid(const std::shared_ptr<COracleSessionHolder>& holder,
                                       const SOracleSid& sid, CHomeProps& home);
    void FillErrorDatabaseProps(const SOracleSid& sid, CHomeProps& home,
                                const CSidCollectionError& verdict);
    std::shared_ptr<COraSidCollector> MakeCollector(const std::shared_ptr<COracleSessionHolder>& holder,
                                                    const SOracleSid& sid);
    bool ShouldSkipCollection(const COracleSessionHolder& holder, bool isAsm);
    static std::shared_ptr<CEnvProps> CollectEnvProps();

    bool exploreFlag;
    SOracleCredentials credentials;
    CExploreDbConfig dbConfig;
};

// Puts the instance's SID into the VSS gate's skip set when its database
// doesn't archive its logs.
void SetDatabaseVssState(const COracleSessionHolder& holder);

} // namespace oracle
} // namespace specific
