#include "oracle/inventory/vss_gate.h"

#include "common/exc/exc.h"
#include "common/strings/strings.h"
#include "common/xml/xml.h"
#include "oracle/inventory/vss_functionality.h"

namespace specific {
namespace oracle {

bool CVssGate::IsVssEnabled()
{
    if (!vssEnabled)
        vssEnabled = std::make_shared<bool>(ComputeVssEnabled());
    return *vssEnabled;
}

bool CVssGate::IsSkipped(const std::wstring& sid) const
{
    return skipSids.find(sid) != skipSids.end();
}

void CVssGate::AddSkippedSid(const std::wstring& sid)
{
    skipSids.insert(sid);
}

std::wstring CVssGate::GatherVssInfo() const
{
    if (!entries)
        throw exc::runtime_exc_t("No Oracle VSS entries were gathered.");
    return GatherVssInfoXml(*entries);
}

void CVssGate::DropEntries()
{
    entries.reset();
}

CVssGate& GetVssGate()
{
    static CVssGate gate;
    return gate;
}

std::wstring GatherVssInfoXml(const SOracleEntries& entries)
{
    util::xml_document_t document("OracleEntries");
    util::xml_node_t root = document.root();
    for (const SOracleEntry& entry : entries) {
        util::xml_node_t node = root.add_child("OracleEntry");
        node.set_attribute("sid", util::wide_to_utf8(entry.sid));
        if (!entry.ok) {
            node.set_attribute("error", util::wide_to_utf8(entry.error));
            continue;
        }
        node.set_attribute("db_name", util::wide_to_utf8(entry.dbName));
        node.set_attribute("instance_open", entry.instanceOpen);
        node.set_attribute("db_open_readonly", entry.dbOpenReadonly);
        node.set_attribute("db_archive_logs_on", entry.dbArchiveLogsOn);
        node.set_attribute("db_active", entry.dbActive);
    }
    return util::utf8_to_wide(document.to_string());
}

} // namespace oracle
} // namespace specific
