#include "oracle/logs/arch_log_info.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"

#include <cstdio>
#include <ctime>
#include <utility>

namespace specific {
namespace oracle {

std::string UtcTimeColumn(const std::string& column)
{
    return util::format_msg("TO_CHAR(SYS_EXTRACT_UTC(CAST(%1 AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss')",
                            column);
}

CArchLogList ReadLogs(COracleQueryResult& result, const SArchLogColumns& columns)
{
    CArchLogList logs;
    COracleRow row;
    while (result.Next(row)) {
        if (row.size() != columns.size())
            continue;
        auto log = std::make_shared<SArchLogInfo>();
        for (size_t i = 0; i < columns.size(); ++i)
            (*log).*columns[i] = row[i];
        logs.push_back(log);
    }
    return logs;
}

std::string CurrentUtcTimeText()
{
    const time_t now = time(nullptr);
    const tm* utc = gmtime(&now);
    if (utc == nullptr)
        throw exc::runtime_exc_t("The current time has no UTC form.");
    char buffer[32] = {};
    snprintf(buffer, sizeof(buffer), "%4d-%02d-%02dT%02d:%02d:%02d", utc->tm_year + 1900,
             utc->tm_mon + 1, utc->tm_mday, utc->tm_hour, utc->tm_min, utc->tm_sec);
    return buffer;
}

namespace {

// The text attributes of a description, in document order; the copy flag, the
// creator's USN and the stamp of the call follow them.
const std::pair<const char*, std::wstring SArchLogInfo::*> kDescribed[] = {
    {"logPath", &SArchLogInfo::logPath},       {"size", &SArchLogInfo::size},
    {"firstChange", &SArchLogInfo::firstChange}, {"firstTimeUtc", &SArchLogInfo::firstTimeUtc},
    {"nextChange", &SArchLogInfo::nextChange},   {"nextTimeUtc", &SArchLogInfo::nextTimeUtc},
    {"sid", &SArchLogInfo::sid},               {"homePath", &SArchLogInfo::homePath},
    {"seqNum", &SArchLogInfo::seqNum},         {"dbId", &SArchLogInfo::dbId},
    {"recId", &SArchLogInfo::recId},           {"stamp", &SArchLogInfo::stamp},
    {"xmlLogPath", &SArchLogInfo::xmlLogPath},
};

} // namespace

std::shared_ptr<util::xml_document_t> SaveLogDescription(const SArchLogInfoPtr& info,
                                                         const std::wstring& xmlPath,
                                                         const std::string& creationTimeUtc)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Saving oracle log description to: %1", util::wide_to_ansi(xmlPath)));
        if (!info)
            return nullptr;
        const auto document = std::make_shared<util::xml_document_t>("archived_log");
        util::xml_node_t element = document->root();
        for (const auto& [name, field] : kDescribed)
            element.set_attribute(name, util::wide_to_utf8((*info).*field));
        element.set_attribute("isLogCopied", info->isLogCopied);
        element.set_attribute("creationUsn", util::wide_to_utf8(info->creationUsn));
        element.set_attribute("creationTimeUtc", creationTimeUtc);

        const std::string content = document->to_string();
        win::create_file(xmlPath)->write(static_cast<uint32_t>(content.size()), content.data());
        operation.ok();
        return document;
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to save oracle log description", caught);
    }
}

std::wstring MakeLogsDocument(const CArchLogList& logs, const std::string& creationTimeUtc)
{
    util::xml_document_t document("archived_logs");
    util::xml_node_t root = document.root();
    for (const SArchLogInfoPtr& log : logs) {
        if (log->size.empty())
            continue;
        const auto saved = SaveLogDescription(log, log->xmlLogPath, creationTimeUtc);
        root.add_copy(saved->root());
    }
    const std::string text = document.to_string();
    logging::oralib().info(text);
    return util::utf8_to_wide(text);
}

std::wstring GetLogPath(const util::xml_node_t& element)
{
    return util::utf8_to_wide(element.get_string("logPath"));
}

std::wstring GetXmlLogPath(const util::xml_node_t& element)
{
    std::string path;
    element.find_string("xmlLogPath", path);
    return util::utf8_to_wide(path);
}

} // namespace oracle
} // namespace specific
