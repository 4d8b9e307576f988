#pragma once

#include "common/xml/xml.h"
#include "oracle/client/oracle_query.h"

#include <memory>
#include <string>
#include <vector>

namespace specific {
namespace oracle {

// One archived log. Numbers stay the text the database gave.
struct SArchLogInfo {
    std::wstring oraclePath;
    std::wstring logPath;
    std::wstring xmlLogPath;
    std::wstring size;
    std::wstring firstChange;
    std::wstring firstTimeUtc;
    std::wstring nextChange;
    std::wstring nextTimeUtc;
    std::wstring sid;
    std::wstring homePath;
    std::wstring seqNum;
    std::wstring recId;
    std::wstring stamp;
    std::wstring thread;
    std::wstring resetlogsChange;
    std::wstring blockSize;
    std::wstring dbId;
    std::wstring creationUsn;
    // The library made a copy, and may delete it later.
    bool isLogCopied = false;
};

using SArchLogInfoPtr = std::shared_ptr<SArchLogInfo>;
using CArchLogList = std::vector<SArchLogInfoPtr>;

// The fields a listing's columns fill, in column order.
using SArchLogColumns = std::vector<std::wstring SArchLogInfo::*>;

// Every row of `result` that has all of `columns`, as a log; shorter rows are skipped.
CArchLogList ReadLogs(COracleQueryResult& result, const SArchLogColumns& columns);

// The SQL expression that reads a V$ARCHIVED_LOG time column as UTC text,
// "yyyy/mm/dd hh24:mi:ss".
std::string UtcTimeColumn(const std::string& column);

// The current UTC time as "YYYY-MM-DDThh:mm:ss", the stamp of one backup call.
std::string CurrentUtcTimeText();

// Writes the description file of one log (UTF-8) and returns its document;
// an empty pointer for an empty `info`.
std::shared_ptr<util::xml_document_t> SaveLogDescription(const SArchLogInfoPtr& info,
                                                         const std::wstring& xmlPath,
                                                         const std::string& creationTimeUtc);

// Writes the description of every log that has a size and returns the
// document that lists them, in list order.
std::wstring MakeLogsDocument(const CArchLogList& logs, const std::string& creationTimeUtc);

// The log's path in a description; raises when it is missing.
std::wstring GetLogPath(const util::xml_node_t& element);
// The description file's own path, or "" when it is missing.
std::wstring GetXmlLogPath(const util::xml_node_t& element);

} // namespace oracle
} // namespace specific
