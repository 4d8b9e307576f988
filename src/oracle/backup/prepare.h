#pragma once

#include "oracle/backup/dbs_backup_xml.h"
#include "oracle/client/oracle_credentials.h"
#include "oracle/client/oracle_sid.h"

#include <memory>
#include <set>
#include <string>

namespace specific {
namespace oracle {

class COracleSession;

// What the prepare of one database found and did; becomes its entry of the
// prepare document.
struct SDbPrepareContext {
    std::shared_ptr<SOracleSid> sidInfo;
    EBackupAction action = kActionFailure;
    SPluggedDbInfos pdbs;
    std::wstring scn;
    std::wstring errMsg;
};

// Puts every database of the machine into a state the snapshot can save, and
// returns the prepare document. `dbsXml` names the databases whose VSS writer
// is enabled. Raises only for the frame (an unreadable document, the
// discovery of instances); one database's failure is kept in its entry.
std::wstring PrepareDbs(const std::wstring& dbsXml, const std::wstring& exploreDbConfigXml,
                        const SOracleCredentials& credentials);

// One database: decides its action and carries it out. Raises nothing; on a
// failure `action` stays what it was when the failure came.
void PrepareDb(SDbPrepareContext& context, const std::set<std::wstring>& enabledWriters,
               const SOracleCredentials& credentials);

// Whether Oracle's VSS writer can be relied on for this database. A writer
// enabled by the caller but not fit for the database is entered into the
// VSS gate's list of writers to skip.
bool CheckVssWriter(const std::wstring& sid, const std::set<std::wstring>& enabledWriters,
                    const std::shared_ptr<COracleSession>& session, bool archivelog);

// The one place where a database is judged unfit for its VSS writer: on ASM, a
// container of version 12 or above, inactive, or without archive logging.
bool ShouldSkipDbFromVss(const std::wstring& sid, const std::shared_ptr<COracleSession>& session,
                         bool active, bool archivelog);

// The plugged databases that are open (or open for an upgrade), so that a
// restore can reopen them. Raises nothing; keeps what was read before a failure.
void GatherPluggedDbs(const std::shared_ptr<COracleSession>& session, SPluggedDbInfos& pdbs);

// Hot backup state; a database with any data file already in backup mode is
// left as it is. Raises on failure.
void SwitchDbToBackupState(const std::shared_ptr<COracleSession>& session);

} // namespace oracle
} // namespace specific
