#pragma once

#include "oracle/logs/arch_log_info.h"

#include <cstdint>
#include <memory>
#include <string>

namespace specific {
namespace oracle {

class COracleSessionHolder;

// Frees the disk of archived logs that the database still lists, by age or
// by size, through the database itself so that its records stay in step.
class COracleLogsRemover {
public:
    // `deleteAbsentLogFiles`: clear the records of logs whose file is gone
    // too, instead of testing each file first.
    COracleLogsRemover(std::shared_ptr<COracleSessionHolder> holder, bool deleteAbsentLogFiles);

    // Removes the logs that ended strictly before `thresholdText`
    // ("dd/mm/yyyy hh:mm:ss", UTC).
    void RemoveLogsByTime(const std::wstring& thresholdText);
    // Keeps logs in row order until their sizes add up past `sizeLimit`, and
    // removes all the rest.
    void RemoveLogsBySize(uint64_t sizeLimit);

    CArchLogList GetActiveLogs();
    // Logs its own failure; the caller goes on with the next log.
    void RemoveLog(const SArchLogInfo& log);

private:
    std::shared_ptr<COracleSessionHolder> holder;
    bool deleteAbsentLogFiles;
};

// A time as the OLE automation date of "%d/%d/%d %d:%d:%d" in the given
// order of fields (0 year, 1 month, 2 day, 3 hour, 4 minute, 5 second);
// false for a text that doesn't name a real second.
bool ParseLogTime(const std::wstring& text, const int (&order)[6], double& time);

} // namespace oracle
} // namespace specific
