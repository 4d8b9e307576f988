// The prepare document: its exact text, its way back, and the documents it refuses.
#include "oracle/backup/dbs_backup_xml.h"

#include "common/strings/strings.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using specific::oracle::CDbsBackupXml;

CDbsBackupXml::SDbPrepareInfos TwoEntries()
{
    auto cdb = std::make_shared<CDbsBackupXml::SDbPrepareInfo>();
    *cdb = {L"CDB\u00c9", L"C:\\\u00f6ra\\home", specific::oracle::kActionBackup,
            {{L"PDB1", L"READ WRITE"}, {L"PDB\u00df", L"MIGRATE"}},
            L"2024-05-06T07:08:09", L"1000000", L"", true};
    auto failed = std::make_shared<CDbsBackupXml::SDbPrepareInfo>();
    *failed = {L"ORCL", L"C:\\h", specific::oracle::kActionFailure, {}, L"2024-05-06T07:08:10", L"",
               L"ORA-01034: \"not\" <available> & \u00e9", false};
    return {cdb, failed};
}

TEST(DbsBackupXml, WritesEveryEntryInUtf8AndReadsBackAllButTheErrorText)
{
    test::strict_log_t log;
    const std::wstring xml = CDbsBackupXml::ToXml(TwoEntries());
    EXPECT_EQ(util::wide_to_utf8(xml),
              "<databases>\n"
              "    <database sid=\"CDB\xc3\x89\" home=\"C:\\\xc3\xb6ra\\home\" timeUtc=\"2024-05-06T07:08:09\" "
              "scn=\"1000000\" errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs>\n"
              "            <database name=\"PDB1\" mode=\"READ WRITE\" />\n"
              "            <database name=\"PDB\xc3\x9f\" mode=\"MIGRATE\" />\n"
              "        </pdbs>\n"
              "    </database>\n"
              "    <database sid=\"ORCL\" home=\"C:\\h\" timeUtc=\"2024-05-06T07:08:10\" scn=\"\" "
              "errMsg='ORA-01034: &quot;not&quot; &lt;available&gt; &amp; \xc3\xa9' action=\"0\" "
              "BackupWithBackupState=\"false\" autostart=\"false\">\n"
              "        <pdbs />\n"
              "    </database>\n"
              "</databases>\n");

    const auto entries = CDbsBackupXml::FromXml(xml);
    ASSERT_EQ(entries.size(), 2u);
    auto expected = TwoEntries();
    expected[1]->errMsg.clear();
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(entries[i]->sid, expected[i]->sid);
        EXPECT_EQ(entries[i]->home, expected[i]->home);
        EXPECT_EQ(entries[i]->action, expected[i]->action);
        EXPECT_EQ(entries[i]->timeUtc, expected[i]->timeUtc);
        EXPECT_EQ(entries[i]->scn, expected[i]->scn);
        EXPECT_EQ(entries[i]->errMsg, expected[i]->errMsg);
        EXPECT_EQ(entries[i]->autostart, expected[i]->autostart);
        ASSERT_EQ(entries[i]->pdbs.size(), expected[i]->pdbs.size());
        for (size_t p = 0; p < entries[i]->pdbs.size(); ++p) {
            EXPECT_EQ(entries[i]->pdbs[p].name, expected[i]->pdbs[p].name);
            EXPECT_EQ(entries[i]->pdbs[p].mode, expected[i]->pdbs[p].mode);
        }
    }
    const std::vector<std::string> lines = log.take();
    EXPECT_NE(std::find(lines.begin(), lines.end(), "oralib| XML: <databases>"), lines.end());
}

TEST(DbsBackupXml, RefusesDocumentsWithoutTheirRootOrAnEntrysRequiredParts)
{
    test::log_capture_t log;
    const std::pair<const wchar_t*, const char*> refused[] = {
        {L"<restore/>", "There is no node with the specified name: [databases]."},
        {L"<databases><database sid='A' home='' timeUtc='' scn='' autostart='true' action='2'/></databases>",
         "There is no node with the specified name: [pdbs]."},
        {L"<databases><x sid='A' home='' timeUtc='' scn='' action='2'><pdbs/></x></databases>",
         "Value of the XML attribute 'autostart' is not defined."},
        {L"<databases><x sid='A' home='' timeUtc='' scn='' autostart='1'><pdbs/></x></databases>",
         "Unexpected type of the attribute. Attribute: [action]."},
        {L"<databases><x sid='A' home='' timeUtc='' scn='' autostart='1' action='two'><pdbs/></x></databases>",
         "Attribute value is not specified. Attribute: [action]."},
        {L"<databases><x home='' timeUtc='' scn='' autostart='1' action='2'><pdbs/></x></databases>",
         "Attribute value is not specified. Attribute: [sid]."},
    };
    for (const auto& [xml, text] : refused) {
        try {
            CDbsBackupXml::FromXml(xml);
            ADD_FAILURE() << "accepted: " << util::wide_to_utf8(xml);
        } catch (const std::exception& caught) {
            EXPECT_EQ(std::string(caught.what()), text);
        }
    }
    // A child of any name is an entry, and an unknown action number is kept for the finish to refuse.
    const auto entries = CDbsBackupXml::FromXml(
        L"<databases><x sid='A' home='' timeUtc='' scn='' autostart='0' action='7'><pdbs><y name='P' mode='M'/></pdbs></x></databases>");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(static_cast<int>(entries[0]->action), 7);
    EXPECT_FALSE(entries[0]->autostart);
    EXPECT_EQ(entries[0]->pdbs[0].name, L"P");
}

} // namespace
