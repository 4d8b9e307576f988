// Log backup, enumeration and removal as the agent drives them, through the
// exports of a private copy of the library against the simulated server.
#include "logs_machine.h"

#include "common/strings/strings.h"
#include "support/kept_documents.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

using test::CLogsMachine;
using test::OrclWithLogs;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

// Oracle's logs: two on disk, a deleted one, one on ASM, one written by LGWR,
// one whose file is gone; CURRENT adds the seventh.
const ocisim::InstanceSetup kOrcl = OrclWithLogs({
    {{"name", "@ARCH@\\ARC0000000001_0001.ARC"}, {"recid", "1"}, {"stamp", "1001"}, {"sequence", "1"},
     {"first_time", "2024/01/01 00:00:00"}},
    {{"name", "@ARCH@\\ARC0000000002_0001.ARC"}, {"stamp", "1002"}},
    {{"name", ""}, {"status", "D"}, {"stamp", "1003"}},
    {{"name", "+DATA/ORCL/ARCHIVELOG/ARC0000000004_0001.ARC"}, {"stamp", "1004"}},
    {{"name", "@ARCH@\\ARC0000000005_0001.ARC"}, {"creator", "LGWR"}, {"stamp", "1005"}},
    {{"name", "@ARCH@\\ARC0000000006_0001.ARC"}, {"stamp", "1006"}},
});

// The non-empty lines of `text`, unindented and sorted.
std::vector<std::string> SortedLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        if (!line.empty())
            lines.push_back(line.substr(line.find_first_not_of(' ')));
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::string Element(const std::string& logPath, int seq, const std::string& xml, bool copied)
{
    char times[160];
    snprintf(times, sizeof(times),
             "firstTimeUtc=\"2024/01/01 %02d:00:00\" nextChange=\"%d\" nextTimeUtc=\"2024/01/01 %02d:00:00\"",
             seq - 1, (seq + 1) * 1000, seq);
    const std::string current =
        "firstTimeUtc=\"2024/01/01 06:00:00\" nextChange=\"1000000\" nextTimeUtc=\"<NOW>\"";
    const std::string n = std::to_string(seq);
    return "    <archived_log logPath=\"" + logPath + "\" size=\"" + (seq < 3 ? n + "000" : "1024") +
           "\" firstChange=\"" + n + "000\" " + (seq == 7 ? current : times) +
           " sid=\"ORCL\" homePath=\"C:\\oracle\\home\" seqNum=\"" + n + "\" dbId=\"1234567890\" recId=\"" + n +
           "\" stamp=\"" + (seq == 7 ? "1100000001" : std::to_string(1000 + seq)) + "\" xmlLogPath=\"" + xml +
           "\" isLogCopied=\"" + (copied ? "true" : "false") +
           "\" creationUsn=\"usn-77\" creationTimeUtc=\"<CALL>\" />\n";
}

// Every description file in the logs folder, one after the other.
std::string Descriptions(const CLogsMachine& machine)
{
    std::string texts;
    for (const auto& entry : std::filesystem::directory_iterator(machine.LogsFolder()))
        if (entry.path().extension() == L".xml")
            texts += test::read_document_file(entry.path().wstring());
    return texts;
}

} // namespace

TEST(LogsBackup, WithoutStagingDescribesLocalLogsInPlaceCopiesAsmAndRemovalKeepsOraclesFiles)
{
    CLogsMachine machine(kOrcl);
    machine.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
    machine.WriteArchFile(L"ARC0000000002_0001.ARC", 2000);
    machine.WriteArchFile(L"ARC0000000005_0001.ARC", 500);

    std::wstring document;
    ASSERT_EQ(machine.BackupLogs(L"", document), S_OK) << util::wide_to_utf8(document);
    const std::string masked = machine.Mask(document);
    EXPECT_EQ(masked, "<archived_logs>\n" +
                          Element("<ARCH>\\ARC0000000001_0001.ARC", 1, "<LOGS>\\{G1}.xml", false) +
                          Element("<ARCH>\\ARC0000000002_0001.ARC", 2, "<LOGS>\\{G2}.xml", false) +
                          Element("<LOGS>\\{G3}", 4, "<LOGS>\\{G3}.xml", true) +
                          Element("<ARCH>\\ARC0000000007_0001.ARC", 7, "<LOGS>\\{G4}.xml", false) +
                          "</archived_logs>\n");
    // The deleted log and the vanished one are left out, without a description;
    // each description is its element alone.
    EXPECT_THAT(machine.Files(machine.LogsFolder()),
                ElementsAre("{G1}.xml", "{G2}.xml", "{G3}", "{G3}.xml", "{G4}.xml"));
    EXPECT_EQ(SortedLines("<archived_logs>\n" + machine.Mask(Descriptions(machine)) + "</archived_logs>\n"),
              SortedLines(masked));
    EXPECT_THAT(machine.Statements(),
                ElementsAre("sql sid=ORCL text=SELECT DBID FROM V$DATABASE",
                            "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE",
                            "sql sid=ORCL text=SELECT DATABASE_STATUS FROM V$INSTANCE",
                            "sql sid=ORCL text=ALTER SYSTEM ARCHIVE LOG ALL", "error sid=ORCL code=271",
                            "sql sid=ORCL text=ALTER SYSTEM ARCHIVE LOG CURRENT",
                            "sql sid=ORCL text=SELECT FIRST_CHANGE#, TO_CHAR(SYS_EXTRACT_UTC(CAST(FIRST_TIME AS "
                            "TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss'), NEXT_CHANGE#, "
                            "TO_CHAR(SYS_EXTRACT_UTC(CAST(NEXT_TIME AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss'), "
                            "NAME, SEQUENCE#, RECID, STAMP FROM V$ARCHIVED_LOG WHERE CREATOR != 'LGWR'",
                            "sql sid=ORCL text=CREATE DIRECTORY DIR1_ AS '+DATA/ORCL/ARCHIVELOG'",
                            "sql sid=ORCL text=CREATE DIRECTORY DIR2_ AS '<LOGS>'",
                            "sql sid=ORCL text=BEGIN\\n DBMS_FILE_TRANSFER.COPY_FILE('DIR1_', "
                            "'ARC0000000004_0001.ARC', 'DIR2_', '{G3}');\\n END;",
                            "sql sid=ORCL text=DROP DIRECTORY DIR1_", "sql sid=ORCL text=DROP DIRECTORY DIR2_"));

    // Removal of the enumerated document: a foreign file beside the copies and
    // a file of a copy's name among Oracle's logs are named by no document.
    std::wstring listed;
    ASSERT_EQ(machine.EnumLogs(listed), S_OK);
    EXPECT_EQ(SortedLines(machine.Mask(listed)), SortedLines(masked));
    const size_t copyAt = document.find(L"{", document.find(L"logPath=\"" + machine.LogsFolder()));
    machine.WriteArchFile(document.substr(copyAt, 38), 10);
    std::ofstream((machine.LogsFolder() + L"\\foreign.bin").c_str()) << "foreign";
    std::wstring error;
    ASSERT_EQ(machine.RemoveLogsInTemp(listed, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("foreign.bin"));
    EXPECT_THAT(machine.Files(machine.ArchFolder()),
                ElementsAre("ARC0000000001_0001.ARC", "ARC0000000002_0001.ARC", "ARC0000000005_0001.ARC",
                            "ARC0000000007_0001.ARC", "{G3}"));
}

TEST(LogsBackup, StagedCopiesLeaveFailedLogsOutWithoutPartialFilesAndTheFolderToolsRejectBadInput)
{
    CLogsMachine machine(kOrcl, true);
    machine.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
    machine.WriteArchFile(L"ARC0000000002_0001.ARC", 0x180000);
    // Held without sharing: the copy can't read it.
    HANDLE locker = CreateFileW((machine.ArchFolder() + L"\\ARC0000000002_0001.ARC").c_str(),
                                GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locker, INVALID_HANDLE_VALUE);
    std::wstring document;
    ASSERT_EQ(machine.BackupLogs(L"1", document), S_OK) << util::wide_to_utf8(document);
    CloseHandle(locker);
    const std::string masked = machine.Mask(document);
    EXPECT_EQ(masked, "<archived_logs>\n" + Element("<LOGS>\\{G1}", 4, "<LOGS>\\{G1}.xml", true) +
                          Element("<LOGS>\\{G2}", 7, "<LOGS>\\{G2}.xml", true) + "</archived_logs>\n");
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("{G1}", "{G1}.xml", "{G2}", "{G2}.xml"));
    std::vector<std::string> failures;
    std::istringstream log(machine.Mask(machine.LibraryLog()));
    for (std::string line; std::getline(log, line);)
        if (line.find("Failed to copy archived log") != std::string::npos)
            failures.push_back(line.substr(line.find("> ") + 2, line.find(" to [") - line.find("> ") - 2));
    EXPECT_THAT(failures, ElementsAre("oralib| WARN|Failed to copy archived log from [<ARCH>\\ARC0000000002_0001.ARC]",
                                      "oralib| WARN|Failed to copy archived log from [<ARCH>\\ARC0000000006_0001.ARC]"));

    // Only names ending exactly in ".xml" are read, and one broken description
    // fails the enumeration.
    std::ofstream((machine.LogsFolder() + L"\\COPY.XML").c_str()) << "<archived_log />";
    std::wstring text;
    ASSERT_EQ(machine.EnumLogs(text), S_OK);
    EXPECT_EQ(SortedLines(machine.Mask(text)), SortedLines(masked));
    const std::wstring broken = machine.LogsFolder() + L"\\broken.xml";
    std::ofstream(broken.c_str()) << "<archived_log logPath=";
    ASSERT_EQ(machine.EnumLogs(text), E_FAIL);
    EXPECT_THAT(util::wide_to_utf8(text),
                EndsWith("--tr:Failed to enum oracle logs description\n--tr:Oracle manager failed to enum logs"));
    DeleteFileW(broken.c_str());

    // Removal stops at an element without logPath: the ones before it are gone.
    std::wstring bad = document;
    bad.insert(bad.find(L"    <archived_log", bad.find(L"/>")), L"    <archived_log size=\"1\" />\n");
    ASSERT_EQ(machine.RemoveLogsInTemp(bad, text), E_FAIL);
    EXPECT_EQ(util::wide_to_utf8(text), "Attribute value is not specified. Attribute: [logPath].\n"
                                        "--tr:Failed to save oracle log description\n"
                                        "--tr:Oracle manager failed to remove logs in temp");
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("COPY.XML", "{G2}", "{G2}.xml"));

    // Documents that name nothing usable fail (or, huge, name no file) and delete nothing.
    const std::wstring huge = L"<archived_logs><archived_log logPath=\"" + std::wstring(1 << 20, L'x') + L"\" /></archived_logs>";
    for (const std::wstring& input : {std::wstring(), std::wstring(L"<archived_logs><archived_log"), huge}) {
        const HRESULT status = machine.RemoveLogsInTemp(input, text);
        EXPECT_TRUE(input == huge || status == E_FAIL) << util::wide_to_utf8(text.substr(0, 200));
        EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("COPY.XML", "{G2}", "{G2}.xml"));
    }
}

TEST(LogsBackup, NothingToCopyGivesABareDocumentAndAnUnwritableDescriptionFailsTheCall)
{
    CLogsMachine machine(kOrcl);
    std::wstring document;
    ASSERT_EQ(machine.BackupLogs(L"99", document), S_OK) << util::wide_to_utf8(document);
    EXPECT_EQ(util::wide_to_utf8(document), "<archived_logs />\n");
    EXPECT_THAT(machine.Statements().back(), EndsWith("WHERE CREATOR != 'LGWR' AND RECID > 99"));

    test::temp_folder_t folder;
    std::ofstream(folder.file(L"logs").c_str()) << "a file where the folder should be";
    CLogsMachine blocked(kOrcl, false, folder.file(L"logs"));
    blocked.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
    ASSERT_EQ(blocked.BackupLogs(L"", document), E_FAIL);
    EXPECT_THAT(util::wide_to_utf8(document),
                EndsWith("--tr:Failed to save oracle log description\n--tr:Failed to backup logs to path: " +
                         util::wide_to_utf8(folder.file(L"logs")) +
                         "\n--tr:Oracle manager failed to backup archived logs"));
}
