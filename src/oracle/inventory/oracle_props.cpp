#include "oracle/inventory/oracle_props.h"

#include "common/strings/strings.h"

namespace specific {
namespace oracle {

namespace {

// An attribute value in UTF-8. Control characters that XML 1.0 can't carry
// even as references become U+FFFD, so a stray byte from the server never
// makes the document ill-formed.
std::string attribute_text(const std::wstring& value)
{
    std::wstring clean = value;
    for (wchar_t& c : clean)
        if (c < 0x20 && c != L'\t' && c != L'\n' && c != L'\r')
            c = 0xFFFD;
    return util::wide_to_utf8(clean);
}

void set_text(util::xml_node_t& element, const char* name, const std::wstring& value)
{
    element.set_attribute(name, attribute_text(value));
}

void add_files(util::xml_node_t& parent, const char* name, const CDbFileList& files)
{
    util::xml_node_t list = parent.add_child(name);
    for (const auto& file : files)
        AddChild(list, *file);
}

} // namespace

void AddChild(util::xml_node_t& parent, const COracleProps& child)
{
    const auto document = child.ToXml();
    const util::xml_node_t element = document->root();
    if (!element.is_empty())
        parent.add_copy(element);
}

int32_t TimeZoneQuarterHours(DWORD result, const TIME_ZONE_INFORMATION& zone)
{
    LONG bias = zone.Bias;
    if (result == TIME_ZONE_ID_STANDARD)
        bias += zone.StandardBias;
    else if (result == TIME_ZONE_ID_DAYLIGHT)
        bias += zone.DaylightBias;
    else if (result != TIME_ZONE_ID_UNKNOWN)
        bias = 0;
    return -bias / 15;
}

CEnvProps::CEnvProps(std::wstring serverName, std::wstring osName)
    : serverName(std::move(serverName)), osName(std::move(osName))
{
}

std::shared_ptr<util::xml_document_t> COverallProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("OracleOverall");
    util::xml_node_t root = document->root();
    if (env) {
        set_text(root, "serverName", env->GetServerName());
        set_text(root, "osName", env->GetOsName());
        TIME_ZONE_INFORMATION zone{};
        const DWORD result = GetTimeZoneInformation(&zone);
        root.set_attribute("timeZone", std::to_string(TimeZoneQuarterHours(result, zone)));
    }
    for (const auto& home : homes)
        AddChild(root, *home);
    return document;
}

CHomeProps::CHomeProps(std::wstring name) : name(std::move(name)) {}

std::shared_ptr<util::xml_document_t> CHomeProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("home");
    util::xml_node_t element = document->root();
    set_text(element, "name", name);
    set_text(element, "version", version);
    set_text(element, "path", path);
    set_text(element, "desc", desc);
    for (const auto& child : children)
        AddChild(element, *child);
    return document;
}

CDbFileProps::CDbFileProps(std::wstring path, std::wstring size)
    : path(std::move(path)), size(std::move(size))
{
}

std::shared_ptr<util::xml_document_t> CDbFileProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("dbfile");
    util::xml_node_t element = document->root();
    set_text(element, "path", path);
    set_text(element, "size", size);
    return document;
}

CDatabaseProps::CDatabaseProps() : timeUtc(util::utf8_to_wide(CurrentUtcTimeText())) {}

std::shared_ptr<util::xml_document_t> CDatabaseProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("database");
    util::xml_node_t element = document->root();
    element.set_attribute("isError", isError);
    if (isError) {
        set_text(element, "sid", sid);
        set_text(element, "config", config);
        set_text(element, "errorDescription", errorDescription);
        return document;
    }
    WriteNormal(element);
    WriteLogGroups(element);
    return document;
}

void CDatabaseProps::WriteNormal(util::xml_node_t& element) const
{
    set_text(element, "name", name);
    set_text(element, "id", id);
    set_text(element, "sid", sid);
    set_text(element, "config", config);
    set_text(element, "lastScn", lastScn);
    element.set_attribute("archiveLogsOn", archiveLogsOn);
    element.set_attribute("isReadonly", isReadonly);
    element.set_attribute("reverted", reverted);
    set_text(element, "timeUtc", timeUtc);
    set_text(element, "lastLogNum", lastLogNum);
    set_text(element, "maxLogRecId", maxLogRecId);
    set_text(element, "maxLogStamp", maxLogStamp);
    element.set_attribute("pfile", pfile);
    set_text(element, "pwdFilePath", pwdFilePath);
    set_text(element, "globalName", globalName);
    set_text(element, "recoveryFileDest", recoveryFileDest);
    set_text(element, "localListener", localListener);
    set_text(element, "remoteListener", remoteListener);
    element.set_attribute("hasGuaranteedRestorePoints", hasGuaranteedRestorePoints);
    element.set_attribute("isCluster", isCluster);

    add_files(element, "control_files", controlFiles);
    add_files(element, "data_files", dataFiles);
    add_files(element, "log_files", logFiles);
    add_files(element, "temp_files", tempFiles);
    util::xml_node_t pdbList = element.add_child("pdbs");
    for (const auto& [pdbName, guid] : pdbs) {
        util::xml_node_t db = pdbList.add_child("db");
        set_text(db, "name", pdbName);
        set_text(db, "guid", guid);
    }
    util::xml_node_t logs = element.add_child("archived_logs");
    for (const SArchLogInfoPtr& log : archivedLogs) {
        util::xml_node_t entry = logs.add_child("archived_log");
        set_text(entry, "path", log->logPath);
        set_text(entry, "size", log->size);
        set_text(entry, "scnFrom", log->firstChange);
        set_text(entry, "scnTo", log->nextChange);
        set_text(entry, "utcTimeFrom", log->firstTimeUtc);
        set_text(entry, "utcTimeTo", log->nextTimeUtc);
        set_text(entry, "seqNum", log->seqNum);
    }
}

// Runs over the written document rather than the records: a member is known by
// the path its element carries, matched exactly.
void CDatabaseProps::WriteLogGroups(const util::xml_node_t& element) const
{
    for (util::xml_node_t file = element.child("log_files").first_child(); !file.is_empty();
         file = file.next_sibling()) {
        const auto found = logGroups.find(util::utf8_to_wide(file.get_string("path")));
        if (found != logGroups.end())
            file.set_attribute("groupNumber", found->second);
    }
}

CAsmDiskProps::CAsmDiskProps(std::wstring name, std::wstring path, std::wstring state)
    : name(std::move(name)), path(std::move(path)), state(std::move(state))
{
}

std::shared_ptr<util::xml_document_t> CAsmDiskProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("disk");
    util::xml_node_t element = document->root();
    set_text(element, "name", name);
    set_text(element, "path", path);
    set_text(element, "state", state);
    return document;
}

CAsmInstanceProps::CAsmInstanceProps(std::wstring sid) : sid(std::move(sid)) {}

std::shared_ptr<util::xml_document_t> CAsmInstanceProps::ToXml() const
{
    auto document = std::make_shared<util::xml_document_t>("asm");
    util::xml_node_t element = document->root();
    set_text(element, "sid", sid);
    for (const auto& disk : disks)
        AddChild(element, *disk);
    return document;
}

} // namespace oracle
} // namespace specific
