#include "oracle/backup/dbs_backup_xml.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/xml/xml.h"

namespace specific {
namespace oracle {

namespace {

const char kRoot[] = "databases";
const char kDatabase[] = "database";
const char kPdbs[] = "pdbs";

std::string utf8(const std::wstring& text)
{
    return util::wide_to_utf8(text);
}

std::wstring wide_attribute(const util::xml_node_t& node, const char* name)
{
    return util::utf8_to_wide(node.get_string(name));
}

void write_entry(util::xml_node_t database, const CDbsBackupXml::SDbPrepareInfo& entry)
{
    database.set_attribute("sid", utf8(entry.sid));
    database.set_attribute("home", utf8(entry.home));
    database.set_attribute("timeUtc", utf8(entry.timeUtc));
    database.set_attribute("scn", utf8(entry.scn));
    database.set_attribute("errMsg", utf8(entry.errMsg));
    database.set_attribute("action", static_cast<uint32_t>(entry.action));
    // Named for history: "true" for every action that was reached, "vss" included.
    database.set_attribute("BackupWithBackupState", entry.action != kActionFailure);
    database.set_attribute("autostart", entry.autostart);
    util::xml_node_t pdbs = database.add_child(kPdbs);
    for (const SPluggedDbInfo& pdb : entry.pdbs) {
        util::xml_node_t plugged = pdbs.add_child(kDatabase);
        plugged.set_attribute("name", utf8(pdb.name));
        plugged.set_attribute("mode", utf8(pdb.mode));
    }
}

std::shared_ptr<CDbsBackupXml::SDbPrepareInfo> read_entry(const util::xml_node_t& database)
{
    auto entry = std::make_shared<CDbsBackupXml::SDbPrepareInfo>();
    entry->sid = wide_attribute(database, "sid");
    entry->home = wide_attribute(database, "home");
    entry->timeUtc = wide_attribute(database, "timeUtc");
    entry->scn = wide_attribute(database, "scn");
    entry->autostart = database.get_bool("autostart");
    entry->action = static_cast<EBackupAction>(database.get_int("action"));
    for (util::xml_node_t pdb = database.child(kPdbs).first_child(); !pdb.is_empty();
         pdb = pdb.next_sibling())
        entry->pdbs.push_back({wide_attribute(pdb, "name"), wide_attribute(pdb, "mode")});
    return entry;
}

} // namespace

std::wstring CDbsBackupXml::ToXml(const SDbPrepareInfos& entries)
{
    util::xml_document_t document(kRoot);
    util::xml_node_t root = document.root();
    for (const auto& entry : entries)
        write_entry(root.add_child(kDatabase), *entry);
    return util::utf8_to_wide(document.to_string());
}

CDbsBackupXml::SDbPrepareInfos CDbsBackupXml::FromXml(const std::wstring& xml)
{
    const std::string text = util::wide_to_utf8(xml);
    logging::oralib().info("XML: %1", text);
    util::xml_document_t document;
    document.parse(text);
    const util::xml_node_t root = document.root();
    if (root.name() != kRoot)
        throw exc::runtime_exc_t("There is no node with the specified name: [%1].", kRoot);
    SDbPrepareInfos entries;
    for (util::xml_node_t database = root.first_child(); !database.is_empty();
         database = database.next_sibling())
        entries.push_back(read_entry(database));
    return entries;
}

} // namespace oracle
} // namespace specific
