// The prepare document: its exact text, its way back, and the documents it refuses.
#include "oracle/backup/dbs_backup_xml.h"

#include "common/strings/strings.h"
#include "support/capturing_receiver.h"

#include <gtest/gtest.h>

namespace {

using specific::oracle::CDbsBackupXml;

TEST(DbsBackupXml, WritesEveryEntryInUtf8AndReadsItBackWithoutTheErrorText)
{
    test::log_capture_t log;
    CDbsBackupXml::SDbPrepareInfos entries = {std::make_shared<CDbsBackupXml::SDbPrepareInfo>(),
                                              std::make_shared<CDbsBackupXml::SDbPrepareInfo>()};
    *entries[0] = {L"CDB\u00c9", L"C:\\\u00f6ra", specific::oracle::kActionBackup,
                   {{L"PDB1", L"READ WRITE"}, {L"PDB\u00df", L"MIGRATE"}}, L"2024-05-06T07:08:09", L"1000000", L"", true};
    *entries[1] = {L"ORCL", L"C:\\h", specific::oracle::kActionFailure, {}, L"2024-05-06T07:08:10", L"",
                   L"ORA-01034: \"not\" <up> & \u00e9", false};
    const std::wstring xml = CDbsBackupXml::ToXml(entries);
    // A value holding a double quote is written in single quotes by the XML layer.
    EXPECT_EQ(util::wide_to_utf8(xml),
              "<databases>\n"
              "    <database sid=\"CDB\xc3\x89\" home=\"C:\\\xc3\xb6ra\" timeUtc=\"2024-05-06T07:08:09\" scn=\"1000000\" "
              "errMsg=\"\" action=\"2\" BackupWithBackupState=\"true\" autostart=\"true\">\n"
              "        <pdbs>\n"
              "            <database name=\"PDB1\" mode=\"READ WRITE\" />\n"
              "            <database name=\"PDB\xc3\x9f\" mode=\"MIGRATE\" />\n"
              "        </pdbs>\n"
              "    </database>\n"
              "    <database sid=\"ORCL\" home=\"C:\\h\" timeUtc=\"2024-05-06T07:08:10\" scn=\"\" "
              "errMsg='ORA-01034: &quot;not&quot; &lt;up&gt; &amp; \xc3\xa9' action=\"0\" "
              "BackupWithBackupState=\"false\" autostart=\"false\">\n"
              "        <pdbs />\n"
              "    </database>\n"
              "</databases>\n");
    entries[1]->errMsg.clear();
    EXPECT_EQ(CDbsBackupXml::ToXml(CDbsBackupXml::FromXml(xml)), CDbsBackupXml::ToXml(entries));
}

TEST(DbsBackupXml, RefusesDocumentsWithoutTheirRootOrAnEntrysRequiredParts)
{
    test::log_capture_t log;
    const std::pair<const wchar_t*, const char*> refused[] = {
        {L"<restore/>", "There is no node with the specified name: [databases]."},
        {L"<databases><x sid='A' home='' timeUtc='' scn='' autostart='1' action='2'/></databases>",
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
}

} // namespace
