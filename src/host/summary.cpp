#include "host/summary.h"

#include <cstdlib>
#include <iterator>
#include <map>
#include <vector>

#include "host/console.h"
#include "tinyxml.h"

namespace host {

namespace {

// The words of the prepare's actions, by their number in the document.
const char* const kActionWords[] = {"failure", "inactive", "backup", "shutdown", "vss", "oracleSkipVss",
                                    "oracleNoAction"};

const TiXmlElement* parsed_root(TiXmlDocument& parsed, const std::wstring& document)
{
    parsed.Parse(WideToUtf8(document).c_str(), nullptr, TIXML_ENCODING_UTF8);
    return parsed.Error() ? nullptr : parsed.RootElement();
}

std::string attribute(const TiXmlElement& element, const char* name)
{
    const char* value = element.Attribute(name);
    return value != nullptr ? value : "";
}

size_t count_children(const TiXmlElement& root)
{
    size_t count = 0;
    for (const TiXmlElement* child = root.FirstChildElement(); child != nullptr; child = child->NextSiblingElement())
        ++count;
    return count;
}

} // namespace

std::wstring PrepareSummary(const std::wstring& document)
{
    TiXmlDocument parsed;
    const TiXmlElement* root = parsed_root(parsed, document);
    if (root == nullptr)
        return std::wstring();
    std::map<std::string, std::vector<std::string>> sidsByAction;
    for (const TiXmlElement* db = root->FirstChildElement("database"); db != nullptr;
         db = db->NextSiblingElement("database")) {
        const int action = std::atoi(attribute(*db, "action").c_str());
        const bool known = action >= 0 && action < static_cast<int>(std::size(kActionWords));
        sidsByAction[known ? kActionWords[action] : "unknown"].push_back(attribute(*db, "sid"));
    }
    std::string text = "databases by action:";
    const char* separator = " ";
    for (const auto& [word, sids] : sidsByAction) {
        text += separator + word + " " + std::to_string(sids.size());
        separator = ", ";
        if (word != "failure" && word != "unknown")
            continue;
        const char* inner = " (";
        for (const std::string& sid : sids) {
            text += inner + sid;
            inner = ", ";
        }
        text += ")";
    }
    return Utf8ToWide(sidsByAction.empty() ? "no databases" : text);
}

std::vector<std::wstring> PreparedSids(const std::wstring& document)
{
    TiXmlDocument parsed;
    const TiXmlElement* root = parsed_root(parsed, document);
    std::vector<std::wstring> sids;
    for (const TiXmlElement* db = root != nullptr ? root->FirstChildElement("database") : nullptr; db != nullptr;
         db = db->NextSiblingElement("database"))
        sids.push_back(Utf8ToWide(attribute(*db, "sid")));
    return sids;
}

std::wstring LogsSummary(const std::wstring& document)
{
    TiXmlDocument parsed;
    const TiXmlElement* root = parsed_root(parsed, document);
    if (root == nullptr)
        return std::wstring();
    size_t logs = 0;
    size_t copied = 0;
    unsigned long long bytes = 0;
    for (const TiXmlElement* log = root->FirstChildElement("archived_log"); log != nullptr;
         log = log->NextSiblingElement("archived_log")) {
        ++logs;
        if (attribute(*log, "isLogCopied") == "true") {
            ++copied;
            bytes += std::strtoull(attribute(*log, "size").c_str(), nullptr, 10);
        }
    }
    return Utf8ToWide(std::to_string(logs) + " logs, " + std::to_string(copied) + " copied, " +
                      std::to_string(bytes) + " bytes");
}

std::wstring CountSummary(const std::wstring& document, const char* noun)
{
    TiXmlDocument parsed;
    const TiXmlElement* root = parsed_root(parsed, document);
    if (root == nullptr)
        return std::wstring();
    return Utf8ToWide(std::to_string(count_children(*root)) + " " + noun);
}

} // namespace host
