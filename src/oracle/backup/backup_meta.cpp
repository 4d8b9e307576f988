#include "oracle/backup/backup_meta.h"

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/last_error.h"
#include "common/xml/xml.h"
#include "oracle/oracle_settings.h"

namespace specific {
namespace oracle {

namespace {

const char kRestore[] = "restore";
const char kEnvelope[] = "root";

// The root element of `document`, which must be named `name`.
util::xml_node_t named_root(const util::xml_document_t& document, const char* name)
{
    const util::xml_node_t root = document.root();
    if (root.name() != name)
        throw exc::runtime_exc_t("There is no node with the specified name: [%1].", name);
    return root;
}

// The whole text reaches the disk under a temporary name first and then
// replaces the file in one rename, so a crash while writing never leaves a
// cut document under the file's own name.
void write_replacing(const std::wstring& path, const std::string& content)
{
    const std::wstring temporary = path + L".tmp";
    try {
        {
            const win::win_file_ptr file = win::create_file(temporary);
            file->write(static_cast<uint32_t>(content.size()), content.data());
            file->flush();
        }
        if (!MoveFileExW(temporary.c_str(), path.c_str(),
                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            win::throw_last_error("Failed to replace [%1].", win::path_param_t(path));
    } catch (...) {
        DeleteFileW(temporary.c_str());
        throw;
    }
}

} // namespace

std::wstring GetRestoreMetaPath()
{
    const std::wstring path =
        win::join_path(OracleSettings().tempLogPath, L"OracleMeta.xml");
    win::create_folders(path);
    return path;
}

void SaveBackupMeta(const std::wstring& path, const std::wstring& dbPrepareXml,
                    const SOracleCredentials& credentials, const std::wstring& osLogin,
                    const std::wstring& osPassword)
{
    if (dbPrepareXml.empty())
        return;
    try {
        logging::log_operation_t operation(logging::oralib(), "Saving oracle backup meta to: %1",
                                           util::wide_to_ansi(path));
        util::xml_document_t document(kRestore);
        util::xml_node_t restore = document.root();
        restore.set_attribute("dbPrepareXml", util::base64_encode(util::wide_to_utf8(dbPrepareXml)));
        std::string envelope;
        if (!credentials.login.empty() &&
            SerializeProtectedCredentials(credentials.login, credentials.password, envelope))
            restore.set_attribute("conn", envelope);
        if (!osLogin.empty() &&
            SerializeProtectedCredentials(util::wide_to_utf8(osLogin), util::wide_to_utf8(osPassword),
                                          envelope))
            restore.set_attribute("os_conn", envelope);
        write_replacing(path, document.to_string());
        operation.ok();
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Failed to save oracle backup meta", caught);
    }
}

void GetRestoreMeta(const std::wstring& path, std::wstring& dbPrepareXml,
                    SOracleCredentials& credentials, std::wstring& osLogin,
                    std::wstring& osPassword)
{
    try {
        if (!win::file_exists(path))
            return;
        const std::string content = win::read_whole_file(path);
        if (content.empty())
            return;
        util::xml_document_t document;
        document.parse(content);
        const util::xml_node_t restore = named_root(document, kRestore);
        dbPrepareXml = util::utf8_to_wide(util::base64_decode(restore.get_string("dbPrepareXml")));
        std::string envelope;
        std::string user;
        std::string password;
        if (restore.find_string("conn", envelope) &&
            DeserializeProtectedCredentials(envelope, user, password))
            credentials = {user, password};
        if (restore.find_string("os_conn", envelope) &&
            DeserializeProtectedCredentials(envelope, user, password)) {
            osLogin = util::utf8_to_wide(user);
            osPassword = util::utf8_to_wide(password);
        }
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to get restore meta content: %1", util::wide_to_ansi_safe(path)),
            caught);
    }
}

void RemoveRestoreMeta(const std::wstring& path)
{
    try {
        if (win::file_exists(path))
            win::remove_file(path);
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc(
            util::format_msg("Failed to remove restore meta file: %1", util::wide_to_ansi_safe(path)),
            caught);
    }
}

// The user name and password are deliberately never looked at: the envelope
// holds two empty byte buffers, so no secret can reach the file.
bool SerializeProtectedCredentials(const std::string&, const std::string&, std::string& result)
{
    try {
        const std::string noBytes;
        util::xml_document_t document(kEnvelope);
        util::xml_node_t root = document.root();
        root.set_attribute("u", util::base64_encode(noBytes));
        root.set_attribute("p", util::base64_encode(noBytes));
        result = util::base64_encode(document.to_string());
        return true;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Unable to serialize protected credentials", caught);
        return false;
    }
}

// Whatever bytes a file carries in the envelope are decoded and dropped.
bool DeserializeProtectedCredentials(const std::string& text, std::string& user,
                                     std::string& password)
{
    try {
        util::xml_document_t document;
        document.parse(util::base64_decode(text));
        const util::xml_node_t root = named_root(document, kEnvelope);
        util::base64_decode(root.get_string("u"));
        util::base64_decode(root.get_string("p"));
        user.clear();
        password.clear();
        return true;
    } catch (const std::exception& caught) {
        logging::oralib().warning_exc("Unable to deserialize protected credentials", caught);
        return false;
    }
}

} // namespace oracle
} // namespace specific
