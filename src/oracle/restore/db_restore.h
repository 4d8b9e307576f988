#pragma once

#include "oracle/client/oracle_credentials.h"
#include "oracle/client/oracle_sid.h"
#include "oracle/restore/plugged_db.h"

#include <memory>

namespace specific {
namespace oracle {

class COracleSessionHolder;

// Bringing a database back to work on a machine restored from a snapshot, and
// starting one that the prepare shut down. Every step makes its own sessions:
// the instance changes state between them.

// For a database that was in backup mode or left to the VSS writer: waits,
// attempt by attempt, until its instance stands mounted or open, ends the
// backup state of a mounted one, and when the attempts are used up starts a
// down instance itself. Plugged databases are reopened when `isAutostart`.
void WaitAndRestoreDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
                      const SPluggedDbInfos& pdbs);

// Starts a shut-down database (nomount, mount, open) unless it is open, then
// reopens its plugged databases. Failures are only logged.
void StartupDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
               const SPluggedDbInfos& pdbs);

// Ends the backup state of a mounted database and, with `autostart`, opens it
// and switches the log. True when the statements ran; a failure is logged.
bool EndRestoredDbBackup(const std::shared_ptr<COracleSessionHolder>& holder, bool autostart);

// The last resort after the attempts: an instance that is down is started to
// mount and its backup ended; one that is up is left alone.
void ForceRestoreDb(const SOracleSid& sidRecord, const SOracleCredentials& credentials);

// Whether the instance stands at "MOUNTED"; false when it can't be asked.
bool IsDbMounted(const SOracleSid& sidRecord, const SOracleCredentials& credentials);

// Starts the instance and mounts its database; raises on failure.
void StartupMount(const SOracleSid& sidRecord, const SOracleCredentials& credentials);

// Starts the instance without mounting, through a preliminary session.
void StartupNoMount(const SOracleSid& sidRecord, const SOracleCredentials& credentials);

// Opens each plugged database that doesn't stand in its stored mode;
// "MIGRATE" is reopened with UPGRADE. One failure doesn't stop the others.
void RestorePluggedDbs(const SOracleSid& sidRecord, const SOracleCredentials& credentials,
                       const SPluggedDbInfos& pdbs);

} // namespace oracle
} // namespace specific
