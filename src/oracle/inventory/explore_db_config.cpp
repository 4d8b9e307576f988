#include "oracle/inventory/explore_db_config.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/xml/xml.h"

namespace specific {
namespace oracle {

namespace {

std::wstring wide_attribute(const util::xml_node_t& element, const char* name)
{
    return util::utf8_to_wide(element.get_string(name));
}

} // namespace

CExploreDbConfig::CExploreDbConfig(const std::wstring& xmlText)
{
    if (xmlText.empty()) {
        logging::oralib().info("Explore db config is empty");
        return;
    }
    try {
        Parse(xmlText);
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to parse explore db config", caught);
    }
}

void CExploreDbConfig::Parse(const std::wstring& xmlText)
{
    util::xml_document_t document;
    document.parse(util::wide_to_utf8(xmlText));
    const util::xml_node_t root = document.root();
    if (root.is_empty())
        throw exc::runtime_exc_t("The explore db config has no root element.");

    const util::xml_node_t recIds = root.find_child("dbrecids");
    for (util::xml_node_t entry = recIds.first_child(); !entry.is_empty();
         entry = entry.next_sibling()) {
        const std::wstring sid = wide_attribute(entry, "sid");
        auto info = std::make_shared<SDbLogRecInfo>();
        info->recId = wide_attribute(entry, "recId");
        info->stamp = wide_attribute(entry, "stamp");
        info->firstPassRecId = wide_attribute(entry, "firstPassRecId");
        logging::oralib().info(
            "Explore db config sid found: %1, recId: %2, stamp: %3, firstPassRecId: %4",
            util::wide_to_ansi_safe(sid), util::wide_to_ansi_safe(info->recId),
            util::wide_to_ansi_safe(info->stamp), util::wide_to_ansi_safe(info->firstPassRecId));
        dbRecIds.emplace(sid, std::move(info));
    }

    const util::xml_node_t excluded = root.find_child("excludes");
    for (util::xml_node_t entry = excluded.first_child(); !entry.is_empty();
         entry = entry.next_sibling()) {
        const std::wstring name = wide_attribute(entry, "name");
        logging::oralib().info("Excluded database: %1", util::wide_to_ansi_safe(name));
        excludes.push_back(name);
    }
}

std::shared_ptr<CExploreDbConfig::SDbLogRecInfo>
CExploreDbConfig::FindRecInfo(const std::wstring& sid) const
{
    const auto found = dbRecIds.find(sid);
    return found == dbRecIds.end() ? nullptr : found->second;
}

} // namespace oracle
} // namespace specific
