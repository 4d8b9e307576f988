#pragma once

#include "oracle/backup/dbs_backup_xml.h"
#include "oracle/client/oracle_credentials.h"
#include "oracle/client/oracle_sid.h"

#include <string>

namespace specific {
namespace oracle {

// Undoes the prepare, database by database, by the action in the prepare
// document: on the live system after the snapshot, or in `restoreMode` on a
// machine restored from it. Raises only when the document can't be read; one
// database's failure is logged and the next one follows.
void FinishDbs(const std::wstring& dbsXml, const SOracleCredentials& credentials, bool restoreMode);

// One entry of the document; raises nothing.
void FinishDb(const CDbsBackupXml::SDbPrepareInfo& entry, const SOracleCredentials& credentials,
              bool restoreMode);

// Ends the hot backup state of a live, open database and switches its log.
// Goes by the document, not by V$BACKUP: a database found closed keeps its
// backup state until the next cycle.
void EndDbBackup(const SOracleSid& sidRecord, const SOracleCredentials& credentials);

} // namespace oracle
} // namespace specific
