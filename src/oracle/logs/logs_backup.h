#pragma once

#include "oracle/logs/arch_log_info.h"

#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSessionHolder;

// Hands the archived logs of one database over to the agent: forces the redo
// into archived logs, lists the logs past the caller's record id, copies those
// that need copying into the log folder and describes each of them.
class COracleLogsBackup {
public:
    // Reads the DBID. `stageLogs` copies local logs too; logs on ASM are
    // always copied.
    COracleLogsBackup(std::shared_ptr<COracleSessionHolder> holder, bool stageLogs);

    // The logs document; one description file per log lies in `folder`.
    std::wstring BackupLogs(const std::wstring& folder, const std::wstring& usn,
                            const std::wstring& lastRecId);
    // CURRENT, then ALL; for callers that need every change in an archived log.
    // Needs no DBID, so it runs without an object.
    static void FlushArchivedLogs(const COracleSessionHolder& holder);

    void ArchiveLogsAll();
    void ArchiveLogsCurrent();
    void GetLogsToCopy(CArchLogList& logs, const std::wstring& lastRecId, const std::wstring& usn);
    void CopyLogs(CArchLogList& logs, const std::wstring& folder);
    bool CopyLog(const std::wstring& source, const std::wstring& destination);

private:
    void CopyAsmLog(const std::wstring& source, const std::wstring& destination);

    std::shared_ptr<COracleSessionHolder> holder;
    bool stageLogs;
    std::wstring dbId;
};

// Copies a plain file in blocks of 512 KiB through one buffer; raises when a
// read gives less than asked.
void CopyLogFile(const std::wstring& source, const std::wstring& destination);

} // namespace oracle
} // namespace specific
