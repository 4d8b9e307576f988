#include "oracle/logs/logs_remover.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "oracle/client/cmd_exec.h"
#include "oracle/client/oracle_query.h"
#include "oracle/client/session_holder.h"
#include "oracle/logs/arch_log_files.h"

#include <oleauto.h>

#include <cstdio>
#include <cwchar>
#include <limits>

namespace specific {
namespace oracle {

namespace {

// Half a second, in days: closer times are the same second.
constexpr double kSameTime = 5.787037037037037e-6;
constexpr int kThresholdOrder[6] = {2, 1, 0, 3, 4, 5};
constexpr int kColumnOrder[6] = {0, 1, 2, 3, 4, 5};

bool later(double a, double b)
{
    return a - b >= kSameTime;
}

uint64_t size_to_number(const std::wstring& text)
{
    if (text.empty() || text.size() > 20 || text.find_first_not_of(L"0123456789") != std::wstring::npos)
        throw exc::runtime_exc_t("bad cast");
    const unsigned long long value = wcstoull(text.c_str(), nullptr, 10);
    if (value == std::numeric_limits<unsigned long long>::max() && text != L"18446744073709551615")
        throw exc::runtime_exc_t("bad cast");
    return value;
}

} // namespace

bool ParseLogTime(const std::wstring& text, const int (&order)[6], double& time)
{
    int fields[6] = {};
    if (swscanf(text.c_str(), L"%d/%d/%d %d:%d:%d", &fields[order[0]], &fields[order[1]],
                &fields[order[2]], &fields[order[3]], &fields[order[4]], &fields[order[5]]) != 6)
        return false;
    for (int value : fields)
        if (value < 0 || value > 0xFFFF)
            return false;
    SYSTEMTIME wanted{};
    wanted.wYear = static_cast<WORD>(fields[0]);
    wanted.wMonth = static_cast<WORD>(fields[1]);
    wanted.wDay = static_cast<WORD>(fields[2]);
    wanted.wHour = static_cast<WORD>(fields[3]);
    wanted.wMinute = static_cast<WORD>(fields[4]);
    wanted.wSecond = static_cast<WORD>(fields[5]);
    if (!SystemTimeToVariantTime(&wanted, &time))
        return false;
    SYSTEMTIME back{};
    if (!VariantTimeToSystemTime(time, &back))
        return false;
    return back.wYear == wanted.wYear && back.wMonth == wanted.wMonth && back.wDay == wanted.wDay &&
           back.wHour == wanted.wHour && back.wMinute == wanted.wMinute &&
           back.wSecond == wanted.wSecond;
}

COracleLogsRemover::COracleLogsRemover(std::shared_ptr<COracleSessionHolder> holder,
                                       bool deleteAbsentLogFiles)
    : holder(std::move(holder)), deleteAbsentLogFiles(deleteAbsentLogFiles)
{
}

void COracleLogsRemover::RemoveLogsByTime(const std::wstring& thresholdText)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Removing archived logs older than: %1", util::wide_to_ansi(thresholdText)));
        for (const SArchLogInfoPtr& log : GetActiveLogs()) {
            double threshold = 0;
            double first = 0;
            double next = 0;
            const bool thresholdValid = ParseLogTime(thresholdText, kThresholdOrder, threshold);
            const bool firstValid = ParseLogTime(log->firstTimeUtc, kColumnOrder, first);
            const bool nextValid = ParseLogTime(log->nextTimeUtc, kColumnOrder, next);
            if (!firstValid || !nextValid || later(first, next) || !thresholdValid ||
                !later(threshold, next))
                continue;
            logging::oralib().info("Removing log file. First UTC time: [%1], next UTC time: [%2]",
                                   util::wide_to_ansi(log->firstTimeUtc),
                                   util::wide_to_ansi(log->nextTimeUtc));
            RemoveLog(*log);
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to remove archived logs by time", caught);
    }
}

void COracleLogsRemover::RemoveLogsBySize(uint64_t sizeLimit)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Removing archived logs by size (%1)", util::int_to_str(sizeLimit)));
        const CArchLogList logs = GetActiveLogs();
        uint64_t total = 0;
        for (const SArchLogInfoPtr& log : logs) {
            // The test comes before the addition: the log that passes the limit is kept.
            if (total > sizeLimit) {
                RemoveLog(*log);
                continue;
            }
            const uint64_t size = size_to_number(log->size);
            total = size > std::numeric_limits<uint64_t>::max() - total
                        ? std::numeric_limits<uint64_t>::max()
                        : total + size;
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to remove archived logs by size", caught);
    }
}

CArchLogList COracleLogsRemover::GetActiveLogs()
{
    try {
        const std::string sql = util::format_msg(
            "SELECT FIRST_CHANGE#, BLOCK_SIZE, RECID, STAMP, NAME, \t\t\tTHREAD#, SEQUENCE#, "
            "RESETLOGS_CHANGE#, BLOCKS*BLOCK_SIZE, \t\t\t%1, %2 FROM V$ARCHIVED_LOG WHERE STATUS != "
            "'D' AND CREATOR != 'LGWR'",
            UtcTimeColumn("FIRST_TIME"), UtcTimeColumn("NEXT_TIME"));
        const SArchLogColumns columns = {
            &SArchLogInfo::firstChange, &SArchLogInfo::blockSize,  &SArchLogInfo::recId,
            &SArchLogInfo::stamp,       &SArchLogInfo::oraclePath, &SArchLogInfo::thread,
            &SArchLogInfo::seqNum,      &SArchLogInfo::resetlogsChange, &SArchLogInfo::size,
            &SArchLogInfo::firstTimeUtc, &SArchLogInfo::nextTimeUtc};
        const auto result = holder->NewQuery()->Exec(sql, static_cast<uint32_t>(columns.size()), false);
        CArchLogList logs = ReadLogs(*result, columns);
        logging::oralib().info("Found %1 active log files", util::int_to_str(logs.size()));
        return logs;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to get active archive logs", caught);
    }
}

void COracleLogsRemover::RemoveLog(const SArchLogInfo& log)
{
    try {
        if (!deleteAbsentLogFiles && !IsFileExists(log.oraclePath, holder->GetSession(), true))
            return;
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Removing log file: %1", util::wide_to_ansi(log.oraclePath)));
        const std::wstring lastArguments = util::format_msg(L"'%1', '%2'", log.firstChange, log.blockSize);
        const std::wstring block = util::format_msg_list(
            L"BEGIN\n DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG('%1', '%2', '%3', '%4', '%5', '%6', %7);\n END;",
            {log.recId, log.stamp, log.oraclePath, log.thread, log.seqNum, log.resetlogsChange,
             lastArguments});
        holder->GetSession()->NewCmdExec(util::wide_to_utf8(block))->Execute();
        operation.ok();
    } catch (const std::exception& caught) {
        logging::oralib().error_exc(
            util::format_msg("Failed to remove log [%1]", util::wide_to_ansi_safe(log.oraclePath)), caught);
    }
}

} // namespace oracle
} // namespace specific
