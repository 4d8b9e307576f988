#include "oracle/logs/logs_folder.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/handle.h"
#include "common/xml/xml.h"
#include "oracle/logs/arch_log_info.h"

#include <windows.h>

#include <filesystem>
#include <vector>

namespace specific {
namespace oracle {

namespace {

// The names of the plain files at the top of `folder` that end exactly in
// ".xml". One directory listing: asking each entry for its type would cost a
// lookup per file, which is most of an enumeration's time in a full folder.
std::vector<std::wstring> list_description_files(const std::wstring& folder)
{
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found;
    const win::unique_find_t search(
        FindFirstFileW((win::strip_trailing_separator(folder) + L"\\*").c_str(), &found));
    if (!search)
        return names;
    do {
        const std::wstring name = found.cFileName;
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 && name.size() > 4 &&
            name.compare(name.size() - 4, 4, L".xml") == 0)
            names.push_back(name);
    } while (FindNextFileW(search.get(), &found));
    return names;
}

} // namespace

std::wstring EnumLogs(const std::wstring& folder)
{
    try {
        logging::log_operation_t operation(logging::oralib(), "Enumerating oracle logs");
        util::xml_document_t document("archived_logs");
        util::xml_node_t root = document.root();
        if (win::file_exists(folder)) {
            for (const std::wstring& name : list_description_files(folder)) {
                const std::wstring path = win::join_path(folder, name);
                logging::oralib().info("Found xml file: %1", util::wide_to_ansi(path));
                const std::string content = win::read_whole_file(path);
                if (content.empty())
                    continue;
                util::xml_document_t description;
                description.parse(content);
                if (!description.root().is_empty())
                    root.add_copy(description.root());
            }
        }
        const std::string text = document.to_string();
        logging::oralib().info(text);
        operation.ok();
        return util::utf8_to_wide(text);
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to enum oracle logs description", caught);
    }
}

void RemoveLogs(const std::wstring& logsXml)
{
    try {
        logging::log_operation_t operation(
            logging::oralib(),
            util::format_msg("Removing oracle logs: %1", util::wide_to_ansi(logsXml)));
        util::xml_document_t document;
        document.parse(util::wide_to_utf8(logsXml));
        for (util::xml_node_t element = document.root().first_child(); !element.is_empty();
             element = element.next_sibling()) {
            const std::wstring logPath = GetLogPath(element);
            bool copied = true;
            element.find_bool("isLogCopied", copied);
            if (copied && win::file_exists(logPath)) {
                logging::oralib().info("Found oracle log to delete: %1", util::wide_to_ansi(logPath));
                win::remove_file(logPath);
            }
            std::wstring xmlPath = GetXmlLogPath(element);
            if (xmlPath.empty() && !logPath.empty())
                xmlPath = std::filesystem::path(logPath).replace_extension(L"xml").native();
            if (!xmlPath.empty() && win::file_exists(xmlPath))
                win::remove_file(xmlPath);
        }
        operation.ok();
    } catch (const std::exception& caught) {
        exc::throw_nested_trace("Failed to save oracle log description", caught);
    }
}

} // namespace oracle
} // namespace specific
