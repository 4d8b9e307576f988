/* orasnap: the library's exported functions (Windows x86-64, default calling convention).
 * Usable from C (C99 or later: <stdbool.h>, <stdint.h>) and from C++.
 *
 * Rules shared by every export:
 *
 * - Results. Every export but OracleLibStrFree returns S_OK (0) on success, E_FAIL
 *   (0x80004005) when the operation failed, and E_POINTER (0x80004003) when an output
 *   cell it must write (result, skip, functional, required) is NULL; then it does no work.
 *
 * - Input texts are NUL-terminated UTF-16. A NULL input text is taken as the empty text.
 *   login and password are database credentials, converted to the active ANSI code page;
 *   an empty login means operating system authentication (SYSDBA where the account has it).
 *
 * - Returned texts. A text returned through a wchar_t** (result, errorText) is allocated
 *   by the library with malloc and belongs to the caller, who releases it with
 *   OracleLibStrFree and with nothing else: the library has a C runtime of its own.
 *   An empty result is a one-character text holding only the terminator.
 *
 * - Output cells (result, bool cells) are written on success only. errorText is written
 *   on failure only (E_FAIL and E_POINTER), so initialise it to NULL before the call.
 *   On E_FAIL it holds the failure as the library's exception carries it: the root cause
 *   first, then one line per layer that added what it was doing ("--tr:" lines among
 *   them). The export's own summary line ("Failed to explore oracle instances.") goes to
 *   the library's log only. A NULL errorText is allowed: the failure is then only logged.
 *
 * - Documents are XML texts; their schemas are in docs/schemas of the source tree.
 *
 * - Threads. Every export runs on the caller's thread; a session to Oracle is made on a
 *   short-lived thread of its own and abandoned after OracleConnectionTimeout seconds, so
 *   no call waits longer than that for a hung client. Make the first call (normally
 *   OracleVssInitLib) from one thread. No export needs an earlier OracleVssInitLib: the
 *   configuration is read from the registry at first use; without the init the log file
 *   is not started.
 */
#ifndef ORASNAP_ORASNAP_H
#define ORASNAP_ORASNAP_H

#include <stdint.h>
#include <wchar.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/* The same guard <windows.h> uses, so either header may come first. */
#ifndef _HRESULT_DEFINED
#define _HRESULT_DEFINED
typedef long HRESULT;
#endif

/* Inside the DLL the module definition file is the one list of exports. */
#if defined(ORASNAP_BUILDING_DLL)
#define ORASNAP_API
#else
#define ORASNAP_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the library: opens the log file logName (a file name; it lies in the LogDirectory
 * of the agent's configuration, else in <common application data>\Brelm\Backup), writes
 * the banner and the configuration to it. Runs once per process: a later call returns
 * S_OK at once and ignores logName, also after OracleVssStopLib.
 * E_FAIL: the log or the configuration could not be set up; a later call tries again. */
ORASNAP_API HRESULT OracleVssInitLib(const wchar_t* logName, wchar_t** errorText);

/* Forgets the VSS entries gathered so far. Stops nothing: the log stays open and every
 * export keeps working. Returns S_OK. */
ORASNAP_API HRESULT OracleVssStopLib(wchar_t** errorText);

/* result: the entries document, root OracleEntries, one OracleEntry per database
 * (sid, then error, or db_name and the flags instance_open, db_open_readonly,
 * db_archive_logs_on, db_active). reserved1 and reserved2 are not read.
 * Nothing in this version gathers entries, so the call returns E_FAIL with
 * "No Oracle VSS entries were gathered.". E_POINTER: result is NULL. */
ORASNAP_API HRESULT OracleGatherVssInfo(void* reserved1, void* reserved2, wchar_t** result, wchar_t** errorText);

/* skip: true when a prepare of this process was told that the VSS writer of sid is enabled
 * and found that it must be left out of the snapshot (database on ASM, pluggable, not
 * active or without archive logging); false for every other SID and before any prepare.
 * SIDs compare exactly, case included. E_POINTER: skip is NULL. */
ORASNAP_API HRESULT OracleShouldSkipVssWriter(const wchar_t* sid, bool* skip, wchar_t** errorText);

/* functional: false when some database is not active (or did not answer in time) while the
 * service OracleVssWriter<SID> of its instance runs, true otherwise. Computed at the first
 * call and kept for the life of the process. E_POINTER: functional is NULL. */
ORASNAP_API HRESULT OracleCheckVssFunctionality(bool* functional, wchar_t** errorText);

/* Releases a text that an export of this library returned. NULL is allowed. */
ORASNAP_API void    OracleLibStrFree(wchar_t* text);

/* result: the inventory document, root OracleOverall (serverName, osName, timeZone), one
 * home per Oracle home, in it one database per instance (its files and pluggable
 * databases; with exploreFlag true also its archived logs and its parameter file) or one
 * asm per ASM instance with its disks. A database that cannot be reached is written in
 * its error form (isError="true", errorDescription) and the call still succeeds.
 * exploreDbConfigXml: the explore input (root config: dbrecids, the archived logs the
 * agent already holds; excludes, SIDs to leave out) or empty.
 * E_FAIL: the registry could not be read or the document not written.
 * E_POINTER: result is NULL. */
ORASNAP_API HRESULT OracleExploreInstances(bool exploreFlag, const wchar_t* login, const wchar_t* password,
                                           const wchar_t* exploreDbConfigXml, wchar_t** result, wchar_t** errorText);

/* Archives the current redo of the instance sid of the home homePath and hands over its
 * archived logs with a RECID above lastRecId (all of them when lastRecId is empty). Logs
 * on ASM, and with OracleStageLogsBeforeBackup all logs, are copied into the log folder
 * (OracleGetLogsFolder) under {guid} names; a description file {guid}.xml is written
 * there for every log. usn is stored in each description as creationUsn.
 * result: the logs document, root archived_logs, one archived_log per log (logPath: where
 * to read it; isLogCopied: whether the library made the copy).
 * E_FAIL: no session (logon refused, instance down, timeout, no OCI.dll), a statement or a
 * copy failed, or the folder is not writable. E_POINTER: result is NULL. */
ORASNAP_API HRESULT OracleBackupLogs(const wchar_t* homePath, const wchar_t* sid, const wchar_t* usn,
                                     const wchar_t* lastRecId, const wchar_t* login, const wchar_t* password,
                                     wchar_t** result, wchar_t** errorText);

/* result: the logs document (root archived_logs) made of the top element of every .xml
 * file in the log folder: the descriptions of logs not yet removed, and between a prepare
 * and its finish the restore element of OracleMeta.xml. A missing folder gives an empty
 * archived_logs. E_FAIL: a file could not be read or parsed. E_POINTER: result is NULL. */
ORASNAP_API HRESULT OracleEnumLogs(wchar_t** result, wchar_t** errorText);

/* Puts every database of the machine (ASM instances and the agent's own BrelmTmp instances
 * excepted) into a state the snapshot can hold: Oracle's VSS writer is left in charge
 * (action 4), hot backup mode (2), shut down when without archive logging (3), or left
 * alone (1, 5, 6).
 * dbsXml: root databases, one database element with sid for each instance whose VSS writer
 * the agent enabled; may be empty. exploreDbConfigXml: its excludes are left out.
 * osLogin, osPassword: an operating system account for the restore; never stored in clear.
 * result: the prepare document, root databases, one database per instance (sid, home,
 * timeUtc, scn, errMsg, action, BackupWithBackupState, autostart, pdbs). It is also saved,
 * base64, in OracleMeta.xml in the log folder, which makes OracleIsRestoreRequired true.
 * A database that fails gets action 0 and its errMsg; the call still succeeds.
 * E_FAIL: dbsXml is not a databases document, the registry could not be read, or the log
 * folder could not be created. E_POINTER: result is NULL. */
ORASNAP_API HRESULT OraclePrepareDbsForBackup(const wchar_t* dbsXml, const wchar_t* exploreDbConfigXml,
                                              const wchar_t* login, const wchar_t* password,
                                              const wchar_t* osLogin, const wchar_t* osPassword,
                                              wchar_t** result, wchar_t** errorText);

/* Undoes the prepare after the snapshot: dbsXml is the prepare document that
 * OraclePrepareDbsForBackup returned. Ends hot backup mode (action 2), starts the databases
 * the prepare shut down (3), and removes OracleMeta.xml. A database that fails is logged
 * and the others go on. E_FAIL: dbsXml cannot be read as a prepare document. */
ORASNAP_API HRESULT OracleFinishDbsBackup(const wchar_t* dbsXml, const wchar_t* login, const wchar_t* password,
                                          wchar_t** errorText);

/* Has Oracle delete (DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG) the archived logs of the
 * instance sid that ended more than minutes minutes ago (UTC). A database that is not open
 * and active is left alone, with S_OK. A log that cannot be deleted is logged and skipped.
 * E_FAIL: no session or the list of logs could not be read. */
ORASNAP_API HRESULT OracleDeleteLogsByTime(const wchar_t* homePath, const wchar_t* sid, int32_t minutes,
                                           const wchar_t* login, const wchar_t* password, wchar_t** errorText);

/* As OracleDeleteLogsByTime, but keeps logs in the database's order until their total size
 * exceeds sizeLimit bytes, and deletes all that follow. */
ORASNAP_API HRESULT OracleDeleteLogsBySize(const wchar_t* homePath, const wchar_t* sid, uint64_t sizeLimit,
                                           const wchar_t* login, const wchar_t* password, wchar_t** errorText);

/* Clears what the agent has fetched: for every element of logsXml (a logs document), deletes
 * the copy at logPath when isLogCopied is "true" or absent (Oracle's own files are never
 * touched), and the description at xmlLogPath.
 * E_FAIL: logsXml cannot be parsed, an element lacks logPath, or a file cannot be deleted;
 * the elements before it are done. */
ORASNAP_API HRESULT OracleRemoveLogsInTemp(const wchar_t* logsXml, wchar_t** errorText);

/* required: true when OracleMeta.xml lies in the log folder, which is the case on a machine
 * restored from a snapshot taken between prepare and finish. E_POINTER: required is NULL. */
ORASNAP_API HRESULT OracleIsRestoreRequired(bool* required, wchar_t** errorText);

/* On a restored machine: waits OracleRestoreWaitInSec seconds, reads the prepare document
 * from OracleMeta.xml, removes that file, and brings each database back: waits for its
 * instance (up to OracleWaitDbStartedAttemptCount attempts), ends its backup mode and opens
 * it and its pluggable databases when it starts with the machine; a database the prepare
 * shut down is started when it starts with the machine. Runs once: the file is gone even
 * when a database fails.
 * E_FAIL: OracleMeta.xml held no readable prepare document (so also on a second call). */
ORASNAP_API HRESULT OracleDoRestore(wchar_t** errorText);

/* result: the log folder, OracleTempLogPath of the configuration as it stands (by default
 * <common application data>\Brelm\Backup\OracleLogBackup\). E_POINTER: result is NULL. */
ORASNAP_API HRESULT OracleGetLogsFolder(wchar_t** result, wchar_t** errorText);

/* A check for a person at a console: starts the library as OracleVssInitLib(logName), then,
 * by operating system authentication, prints each open instance with its archive mode and
 * archived logs to standard output (an instance that cannot be reached is passed over),
 * and waits for a key when standard input is a console. Ends with OracleVssStopLib.
 * reserved1 and reserved2 are not read.
 * E_FAIL: the start failed, or a statement on an open instance failed. */
ORASNAP_API HRESULT OracleTest(void* reserved1, void* reserved2, const wchar_t* logName, wchar_t** errorText);

#ifdef __cplusplus
}
#endif

#endif
