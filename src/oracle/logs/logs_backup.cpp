#include "oracle/logs/logs_backup.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "oracle/client/asm_files.h"
#include "oracle/client/instance_status.h"
#include "oracle/client/oracle_exc.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/session_holder.h"

#include <vector>

namespace specific {
namespace oracle {

namespace {

constexpr uint32_t kCopyBlockSize = 0x80000;
// What "ARCHIVE LOG ALL" answers when CURRENT has just archived everything.
constexpr uint32_t kNoLogsToArchive = 271;

bool is_on_asm(const std::wstring& path)
{
    return !path.empty() && path[0] == L'+';
}

} // namespace

COracleLogsBackup::COracleLogsBackup(std::shared_ptr<COracleSessionHolder> holder, bool stageLogs)
    : holder(std::move(holder)), stageLogs(stageLogs)
{
    dbId = this->holder->NewQuery()->ExecValue("SELECT DBID FROM V$DATABASE", false);
}

std::wstring COracleLogsBackup::BackupLogs(const std::wstring& folder, const std::wstring& usn,
                                           const std::wstring& lastRecId)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Backup logs to folder: %1, usn %2, last rec id: %3",
                             util::wide_to_ansi(folder), util::wide_to_ansi(usn),
                             util::wide_to_ansi(lastRecId)));
        if (!win::file_exists(folder))
            win::create_folders(win::strip_trailing_separator(folder) + L"\\");
        const std::string creationTimeUtc = CurrentUtcTimeText();

        CArchLogList logs;
        const auto session = holder->GetSession();
        COracleInstanceStatus status;
        if (status.IsInstanceOpen(session, false) && status.IsDbActive(session)) {
            ArchiveLogsAll();
            ArchiveLogsCurrent();
            GetLogsToCopy(logs, lastRecId, usn);
            CopyLogs(logs, folder);
        }
        std::wstring document = MakeLogsDocument(logs, creationTimeUtc);
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace(
            util::format_msg("Failed to backup logs to path: %1", util::wide_to_ansi_safe(folder)),
            caught);
    }
}

void COracleLogsBackup::FlushArchivedLogs(const COracleSessionHolder& holder)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Flushing archived logs");
        holder.NewQuery()->ExecNoResult("ALTER SYSTEM ARCHIVE LOG CURRENT");
        try {
            holder.NewQuery()->ExecNoResult("ALTER SYSTEM ARCHIVE LOG ALL");
        } catch (const COracleExc& caught) {
            if (caught.code() != kNoLogsToArchive)
                throw;
            logging::oralib().info(caught.what());
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to flush archived logs", caught);
    }
}

void COracleLogsBackup::ArchiveLogsAll()
{
    try {
        holder->NewQuery()->ExecNoResult("ALTER SYSTEM ARCHIVE LOG ALL");
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to archive logs all", caught);
    }
}

void COracleLogsBackup::ArchiveLogsCurrent()
{
    try {
        holder->NewQuery()->ExecNoResult("ALTER SYSTEM ARCHIVE LOG CURRENT");
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to archive logs current", caught);
    }
}

void COracleLogsBackup::GetLogsToCopy(CArchLogList& logs, const std::wstring& lastRecId,
                                      const std::wstring& usn)
{
    try {
        std::string sql = util::format_msg(
            "SELECT FIRST_CHANGE#, %1, NEXT_CHANGE#, %2, NAME, SEQUENCE#, RECID, STAMP FROM "
            "V$ARCHIVED_LOG WHERE CREATOR != 'LGWR'",
            UtcTimeColumn("FIRST_TIME"), UtcTimeColumn("NEXT_TIME"));
        // The caller's text goes in as it came: it is the caller's own record id.
        if (!lastRecId.empty())
            sql += util::format_msg(" AND RECID > %1", util::wide_to_ansi(lastRecId));

        const SArchLogColumns columns = {&SArchLogInfo::firstChange, &SArchLogInfo::firstTimeUtc,
                                         &SArchLogInfo::nextChange,  &SArchLogInfo::nextTimeUtc,
                                         &SArchLogInfo::oraclePath,  &SArchLogInfo::seqNum,
                                         &SArchLogInfo::recId,       &SArchLogInfo::stamp};
        const auto result = holder->NewQuery()->Exec(sql, static_cast<uint32_t>(columns.size()), false);
        for (const SArchLogInfoPtr& log : ReadLogs(*result, columns)) {
            log->dbId = dbId;
            log->creationUsn = usn;
            logs.push_back(log);
        }
        logging::oralib().info("Found %1 log files with seq number above %2",
                               util::int_to_str(logs.size()), util::wide_to_ansi(lastRecId));
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to get logs to copy", caught);
    }
}

void COracleLogsBackup::CopyLogs(CArchLogList& logs, const std::wstring& folder)
{
    for (const SArchLogInfoPtr& log : logs) {
        log->homePath = holder->GetHomePath();
        log->sid = holder->GetSid();
        const std::wstring destination = win::join_path(folder, util::guid_to_str(util::new_guid()));
        log->xmlLogPath = destination + L".xml";

        if (!is_on_asm(log->oraclePath) && !stageLogs) {
            log->logPath = log->oraclePath;
        } else {
            logging::log_operation_t operation(
                logging::oralib(),
                util::format_msg("Copying log file [%1]", util::wide_to_ansi(log->oraclePath)));
            if (CopyLog(log->oraclePath, destination)) {
                log->logPath = destination;
                log->isLogCopied = true;
                operation.ok();
            }
        }
        // One query for presence and size: a test and an open per log cost
        // a third of a large backup's time.
        WIN32_FILE_ATTRIBUTE_DATA attributes;
        if (!log->logPath.empty() &&
            GetFileAttributesExW(log->logPath.c_str(), GetFileExInfoStandard, &attributes) &&
            (attributes.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            log->size = util::int_to_wstr(static_cast<uint64_t>(attributes.nFileSizeHigh) << 32 |
                                          attributes.nFileSizeLow);
    }
}

bool COracleLogsBackup::CopyLog(const std::wstring& source, const std::wstring& destination)
{
    try {
        if (is_on_asm(source))
            CopyAsmLog(source, destination);
        else
            CopyLogFile(source, destination);
        return true;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to copy archived log from [%1] to [%2]",
                             util::wide_to_ansi_safe(source), util::wide_to_ansi_safe(destination)),
            caught);
    }
    // No document names a half-written copy, so nothing would ever clear it.
    try {
        if (win::file_exists(destination))
            win::remove_file(destination);
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to remove the partial copy [%1]",
                             util::wide_to_ansi_safe(destination)),
            caught);
    }
    return false;
}

void COracleLogsBackup::CopyAsmLog(const std::wstring& source, const std::wstring& destination)
{
    CopyAsmFile(holder->GetSession(), util::wide_to_utf8(source), util::wide_to_utf8(destination));
}

void CopyLogFile(const std::wstring& source, const std::wstring& destination)
{
    const win::win_file_ptr in = win::open_file_read(source);
    const win::win_file_ptr out = win::create_file(destination);
    std::vector<char> buffer(kCopyBlockSize);
    uint64_t left = in->size();
    while (left > 0) {
        const uint32_t requested = left < kCopyBlockSize ? static_cast<uint32_t>(left) : kCopyBlockSize;
        const uint32_t read = in->read(buffer.data(), requested);
        if (read != requested)
            throw exc::runtime_exc_t("Only %1 bytes were read from the file [%2] (requested %3 bytes)",
                                     util::int_to_str(read), util::wide_to_ansi_safe(source),
                                     util::int_to_str(requested));
        out->write(read, buffer.data());
        left -= read;
    }
}

} // namespace oracle
} // namespace specific
