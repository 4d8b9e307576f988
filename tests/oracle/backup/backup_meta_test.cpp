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

void WriteFile(const std::wstring& path, const std::string& content)
{
    std::ofstream(path.c_str(), std::ios::binary) << content;
}

struct SMetaRead {
    std::wstring xml = L"<unchanged>";
    SOracleCredentials credentials{"<unchanged>", "<unchanged>"};
    std::wstring osLogin = L"<unchanged>";
    std::wstring osPassword = L"<unchanged>";
};

SMetaRead Read(const std::wstring& path)
{
    SMetaRead read;
    GetRestoreMeta(path, read.xml, read.credentials, read.osLogin, read.osPassword);
    return read;
}

TEST(BackupMeta, KeepsTheDocumentAndTheShapeOfTheCredentialsButNeverASecret)
{
    test::strict_log_t log;
    test::temp_folder_t folder;
    const std::wstring path = folder.file(L"OracleMeta.xml");
    SaveBackupMeta(path, kPrepareXml, {"system", kPassword}, L"DOM\\opsuser7", kOsPassword);

    const std::string content = test::read_file_text(path);
    const std::string envelope = Envelope("", "");
    EXPECT_EQ(content, "<restore dbPrepareXml=\"" + util::base64_encode(util::wide_to_utf8(kPrepareXml)) +
                           "\" conn=\"" + envelope + "\" os_conn=\"" + envelope + "\" />\n");
    for (const std::string& secret :
         {std::string(kPassword), util::wide_to_utf8(kOsPassword), std::string("system"), std::string("opsuser7")}) {
        EXPECT_EQ(content.find(secret), std::string::npos) << secret;
        EXPECT_EQ(log.receiver->all().find(secret), std::string::npos) << secret;
    }
    // Only the file itself is left in the folder: the temporary copy was renamed.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);

    const SMetaRead read = Read(path);
    EXPECT_EQ(read.xml, kPrepareXml);
    EXPECT_EQ(read.credentials.login, "");
    EXPECT_EQ(read.credentials.password, "");
    EXPECT_EQ(read.osLogin, L"");
    EXPECT_EQ(read.osPassword, L"");

    // No logins, no envelopes; a second save replaces the file; an empty document writes nothing.
    SaveBackupMeta(path, L"<databases />\n", {"", kPassword}, L"", kOsPassword);
    EXPECT_EQ(test::read_file_text(path), "<restore dbPrepareXml=\"" + util::base64_encode("<databases />\n") + "\" />\n");
    SaveBackupMeta(path, L"", {"system", kPassword}, L"", L"");
    EXPECT_EQ(Read(path).xml, L"<databases />\n");
    RemoveRestoreMeta(path);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(Read(path).xml, L"<unchanged>");
    RemoveRestoreMeta(path);
}

TEST(BackupMeta, ReadsFilledEnvelopesAsEmptyAndOnlyLogsWhatItCannotRead)
{
    test::strict_log_t log;
    test::temp_folder_t folder;
    const std::wstring path = folder.file(L"OracleMeta.xml");
    const std::string document = util::base64_encode("<databases />");
    WriteFile(path, "<restore dbPrepareXml=\"" + document + "\" conn=\"" + Envelope("c3lz", "cHc=") +
                        "\" os_conn=\"" + Envelope("dQ==", "cA==") + "\"/>");
    SMetaRead read = Read(path);
    EXPECT_EQ(read.xml, L"<databases />");
    EXPECT_EQ(read.credentials.login + read.credentials.password, "");
    EXPECT_EQ(read.osLogin + read.osPassword, L"");

    WriteFile(path, "<restore dbPrepareXml=\"" + document + "\" conn=\"not an envelope\" os_conn=\"" +
                        Envelope("", "") + "\"/>");
    read = Read(path);
    EXPECT_EQ(read.xml, L"<databases />");
    EXPECT_EQ(read.credentials.login, "<unchanged>");
    EXPECT_EQ(read.osLogin, L"");
    std::vector<std::string> lines = log.take();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "oralib| WARN|Unable to deserialize protected credentials");

    // A file cut in the middle of its write, one without the document, a foreign
    // root, binary garbage: a logged failure and nothing read. An empty file is no failure.
    const std::string whole = "<restore dbPrepareXml=\"" + document + "\" />";
    for (const std::string& bad : {whole.substr(0, whole.size() / 2), std::string("<restore />"),
                                   std::string("<databases />"), std::string("\x01\xff<\x00>", 5)}) {
        WriteFile(path, bad);
        EXPECT_EQ(Read(path).xml, L"<unchanged>") << bad;
        lines = log.take();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), "oralib| WARN|Failed to get restore meta content: " + util::wide_to_utf8(path));
    }
    WriteFile(path, "");
    EXPECT_EQ(Read(path).xml, L"<unchanged>");
}

} // namespace
