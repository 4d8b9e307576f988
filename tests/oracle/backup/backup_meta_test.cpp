// The metadata file: what a prepare leaves for a restored machine, and what a
// reader makes of files that are cut, foreign or hostile.
#include "oracle/backup/backup_meta.h"

#include "common/strings/strings.h"
#include "support/capturing_receiver.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace specific::oracle;

const char kPassword[] = "Zq7-Sekr3t-Pw";
const wchar_t kOsPassword[] = L"Os-W\u00f6rd-91x";
const wchar_t kPrepareXml[] = L"<databases>\n    <database sid=\"\u00c9T\" />\n</databases>\n";

std::string Envelope(const std::string& u, const std::string& p)
{
    return util::base64_encode("<root u=\"" + u + "\" p=\"" + p + "\" />\n");
}

// The document read from `path`, or "<unchanged>"; the credentials read are appended.
std::wstring Read(const std::wstring& path)
{
    std::wstring xml = L"<unchanged>";
    SOracleCredentials credentials{"<db>", "<db>"};
    std::wstring osLogin = L"<os>";
    std::wstring osPassword = L"<os>";
    GetRestoreMeta(path, xml, credentials, osLogin, osPassword);
    return xml + L"|" + util::utf8_to_wide(credentials.login + credentials.password) + L"|" + osLogin + osPassword;
}

TEST(BackupMeta, KeepsTheDocumentAndTheShapeOfTheCredentialsButNeverASecret)
{
    test::strict_log_t log;
    test::temp_folder_t folder;
    const std::wstring path = folder.file(L"OracleMeta.xml");
    SaveBackupMeta(path, kPrepareXml, {"system", kPassword}, L"DOM\\opsuser7", kOsPassword);
    const std::string content = test::read_file_text(path);
    EXPECT_EQ(content, "<restore dbPrepareXml=\"" + util::base64_encode(util::wide_to_utf8(kPrepareXml)) +
                           "\" conn=\"" + Envelope("", "") + "\" os_conn=\"" + Envelope("", "") + "\" />\n");
    for (const std::string& secret : {std::string(kPassword), util::wide_to_utf8(kOsPassword), std::string("system")})
        EXPECT_EQ((content + log.receiver->all()).find(secret), std::string::npos) << secret;
    // The temporary copy was renamed over the file: nothing else is left.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
    EXPECT_EQ(Read(path), std::wstring(kPrepareXml) + L"||");

    // No logins, no envelopes; an empty document writes nothing.
    SaveBackupMeta(path, L"<databases />", {"", kPassword}, L"", kOsPassword);
    SaveBackupMeta(path, L"", {"system", kPassword}, L"", L"");
    EXPECT_EQ(test::read_file_text(path), "<restore dbPrepareXml=\"" + util::base64_encode("<databases />") + "\" />\n");
    RemoveRestoreMeta(path);
    RemoveRestoreMeta(path);
    EXPECT_EQ(Read(path), L"<unchanged>|<db><db>|<os><os>");
}

TEST(BackupMeta, ReadsFilledEnvelopesAsEmptyAndOnlyLogsWhatItCannotRead)
{
    test::strict_log_t log;
    test::temp_folder_t folder;
    const std::wstring path = folder.file(L"OracleMeta.xml");
    const auto write = [&path](const std::string& content) { std::ofstream(path.c_str(), std::ios::binary) << content; };
    const std::string restore = "<restore dbPrepareXml=\"" + util::base64_encode("<databases />") + "\"";
    write(restore + " conn=\"" + Envelope("c3lz", "cHc=") + "\" os_conn=\"" + Envelope("dQ==", "cA==") + "\"/>");
    EXPECT_EQ(Read(path), L"<databases />||");
    write(restore + " conn=\"not an envelope\"/>");
    EXPECT_EQ(Read(path), L"<databases />|<db><db>|<os><os>");
    EXPECT_EQ(log.take().front(), "oralib| WARN|Unable to deserialize protected credentials");

    // A file cut in the middle of its write, one without the document, a foreign
    // root, binary garbage: a logged failure and nothing read. An empty file is no failure.
    for (const std::string& bad : {restore.substr(0, restore.size() / 2), std::string("<restore />"),
                                   std::string("<databases />"), std::string("\x01\xff<\x00>", 5)}) {
        write(bad);
        EXPECT_EQ(Read(path), L"<unchanged>|<db><db>|<os><os>") << bad;
        EXPECT_EQ(log.take().front(), "oralib| WARN|Failed to get restore meta content: " + util::wide_to_utf8(path));
    }
    write("");
    EXPECT_EQ(Read(path), L"<unchanged>|<db><db>|<os><os>");
}

} // namespace
