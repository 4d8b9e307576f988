// Log backup, enumeration and removal as the agent drives them, through the
// exports of a private copy of the library against the simulated server.
#include "logs_machine.h"

#include "common/strings/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

using logs_test::CLogsMachine;
using logs_test::ReadFileText;
using logs_test::SLogsConfig;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Oracle's logs: two on disk, a deleted one, one on ASM, one written by LGWR,
// one whose file is gone; CURRENT adds the seventh.
const std::vector<std::string> kLogs = {
    "name=@ARCH@\\ARC0000000001_0001.ARC | recid=1 | stamp=1001 | sequence=1 | first_time=2024/01/01 00:00:00",
    "name=@ARCH@\\ARC0000000002_0001.ARC | stamp=1002",
    "name= | status=D | stamp=1003",
    "name=+DATA/ORCL/ARCHIVELOG/ARC0000000004_0001.ARC | stamp=1004",
    "name=@ARCH@\\ARC0000000005_0001.ARC | creator=LGWR | stamp=1005",
    "name=@ARCH@\\ARC0000000006_0001.ARC | stamp=1006",
};

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
        lines.push_back(line.substr(line.find_first_not_of(' ')));
    return lines;
}

std::vector<std::string> Sorted(std::vector<std::string> lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

// The masked text of every description file in the logs folder, sorted.
std::vector<std::string> Descriptions(CLogsMachine& machine)
{
    std::vector<std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(machine.LogsFolder()))
        if (entry.path().extension() == L".xml")
            texts.push_back(machine.Mask(ReadFileText(entry.path().wstring())));
    std::sort(texts.begin(), texts.end());
    return texts;
}

std::string Element(const std::string& logPath, const std::string& size, const std::string& seq,
                    const std::string& times, const std::string& xml, bool copied,
                    const std::string& stamp = std::string())
{
    const int n = std::stoi(seq);
    return "<archived_log logPath=\"" + logPath + "\" size=\"" + size + "\" firstChange=\"" +
           std::to_string(n * 1000) + "\" " + times + " sid=\"ORCL\" homePath=\"C:\\oracle\\home\" seqNum=\"" +
           seq + "\" dbId=\"1234567890\" recId=\"" + seq + "\" stamp=\"" + (stamp.empty() ? std::to_string(1000 + n) : stamp) +
           "\" xmlLogPath=\"" + xml + "\" isLogCopied=\"" + (copied ? "true" : "false") +
           "\" creationUsn=\"usn-77\" creationTimeUtc=\"<CALL>\" />";
}

std::string Times(int seq)
{
    char text[160];
    snprintf(text, sizeof(text),
             "firstTimeUtc=\"2024/01/01 %02d:00:00\" nextChange=\"%d\" nextTimeUtc=\"2024/01/01 %02d:00:00\"",
             seq - 1, (seq + 1) * 1000, seq);
    return text;
}

} // namespace

TEST(LogsBackup, WithoutStagingDescribesLocalLogsInPlaceCopiesAsmAndRemovalKeepsOraclesFiles)
{
    CLogsMachine machine("", kLogs);
    machine.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
    machine.WriteArchFile(L"ARC0000000002_0001.ARC", 2000);
    machine.WriteArchFile(L"ARC0000000005_0001.ARC", 500);

    std::wstring document;
    ASSERT_EQ(machine.BackupLogs(L"", document), S_OK) << util::wide_to_utf8(document);
    const std::string current =
        "firstTimeUtc=\"2024/01/01 06:00:00\" nextChange=\"1000000\" nextTimeUtc=\"<NOW>\"";
    EXPECT_EQ(machine.Mask(document),
              "<archived_logs>\n    " +
                  Element("<ARCH>\\ARC0000000001_0001.ARC", "1000", "1", Times(1), "<LOGS>\\{G1}.xml", false) +
                  "\n    " +
                  Element("<ARCH>\\ARC0000000002_0001.ARC", "2000", "2", Times(2), "<LOGS>\\{G2}.xml", false) +
                  "\n    " + Element("<LOGS>\\{G3}", "1024", "4", Times(4), "<LOGS>\\{G3}.xml", true) +
                  "\n    " +
                  Element("<ARCH>\\ARC0000000007_0001.ARC", "1024", "7", current, "<LOGS>\\{G4}.xml", false, "1100000001") +
                  "\n</archived_logs>\n");
    // The deleted log and the vanished one are left out, without a description.
    EXPECT_THAT(machine.Files(machine.LogsFolder()),
                ElementsAre("{G1}.xml", "{G2}.xml", "{G3}", "{G3}.xml", "{G4}.xml"));
    std::vector<std::string> elements = Lines(machine.Mask(document));
    elements = std::vector<std::string>(elements.begin() + 1, elements.end() - 1);
    std::vector<std::string> files;
    for (const std::string& text : Descriptions(machine))
        files.push_back(text.substr(0, text.size() - 1));
    EXPECT_EQ(files, Sorted(elements));

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

    // The enumeration finds the same descriptions; a foreign file and a file
    // of a copy's name elsewhere are named by no document.
    std::wstring listed;
    ASSERT_EQ(machine.EnumLogs(listed), S_OK);
    std::vector<std::string> listedLines = Lines(machine.Mask(listed));
    EXPECT_EQ(Sorted(listedLines), Sorted(Lines(machine.Mask(document))));
    machine.WriteArchFile(L"foreign.xml.bak", 10);
    const std::wstring copyAt = L"logPath=\"" + machine.LogsFolder() + L"\\";
    const size_t at = document.find(copyAt);
    ASSERT_NE(at, std::wstring::npos);
    const std::wstring copyName = document.substr(at + copyAt.size(), 38);
    machine.WriteArchFile(copyName, 10);
    CopyFileW((machine.ArchFolder() + L"\\foreign.xml.bak").c_str(),
              (machine.LogsFolder() + L"\\foreign.bin").c_str(), FALSE);

    std::wstring error;
    ASSERT_EQ(machine.RemoveLogsInTemp(listed, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("foreign.bin"));
    EXPECT_THAT(machine.Files(machine.ArchFolder()),
                ElementsAre("ARC0000000001_0001.ARC", "ARC0000000002_0001.ARC", "ARC0000000005_0001.ARC",
                            "ARC0000000007_0001.ARC", "foreign.xml.bak", "{G3}"));
}

TEST(LogsBackup, StagedCopiesLeaveFailedLogsOutWithoutPartialFilesAndTheFolderToolsRejectBadInput)
{
    CLogsMachine machine("", kLogs, SLogsConfig{true, true, L""});
    machine.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
    machine.WriteArchFile(L"ARC0000000002_0001.ARC", 0x180000);
    // Held without sharing by another process: the copy can't read it.
    HANDLE locker = CreateFileW((machine.ArchFolder() + L"\\ARC0000000002_0001.ARC").c_str(),
                                GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(locker, INVALID_HANDLE_VALUE);

    std::wstring document;
    ASSERT_EQ(machine.BackupLogs(L"1", document), S_OK) << util::wide_to_utf8(document);
    CloseHandle(locker);
    const std::string masked = machine.Mask(document);
    const std::string current =
        "firstTimeUtc=\"2024/01/01 06:00:00\" nextChange=\"1000000\" nextTimeUtc=\"<NOW>\"";
    EXPECT_EQ(masked, "<archived_logs>\n    " +
                          Element("<LOGS>\\{G1}", "1024", "4", Times(4), "<LOGS>\\{G1}.xml", true) + "\n    " +
                          Element("<LOGS>\\{G2}", "1024", "7", current, "<LOGS>\\{G2}.xml", true, "1100000001") +
                          "\n</archived_logs>\n");
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("{G1}", "{G1}.xml", "{G2}", "{G2}.xml"));
    std::vector<std::string> failures;
    for (const std::string& line : machine.LogLines())
        if (line.find("Failed to copy archived log") != std::string::npos)
            failures.push_back(machine.Mask(line).substr(0, machine.Mask(line).find(" to [")));
    EXPECT_THAT(failures, ElementsAre("oralib| WARN|Failed to copy archived log from [<ARCH>\\ARC0000000002_0001.ARC]",
                                      "oralib| WARN|Failed to copy archived log from [<ARCH>\\ARC0000000006_0001.ARC]"));
    EXPECT_THAT(machine.Statements()[6], testing::EndsWith("WHERE CREATOR != 'LGWR' AND RECID > 1"));

    // One broken description fails the enumeration; only ".xml" exactly is read.
    const std::wstring broken = machine.LogsFolder() + L"\\broken.xml";
    CopyFileW((machine.LogsFolder() + L"\\" + document.substr(document.find(L"xmlLogPath=\"") + 12 +
                                                               machine.LogsFolder().size() + 1, 42))
                  .c_str(),
              (machine.LogsFolder() + L"\\COPY.XML").c_str(), FALSE);
    std::wstring text;
    ASSERT_EQ(machine.EnumLogs(text), S_OK);
    EXPECT_EQ(Sorted(Lines(machine.Mask(text))), Sorted(Lines(masked)));
    std::ofstream(broken.c_str()) << "<archived_log logPath=";
    ASSERT_EQ(machine.EnumLogs(text), E_FAIL);
    EXPECT_THAT(util::wide_to_utf8(text),
                testing::EndsWith("--tr:Failed to enum oracle logs description\n--tr:Oracle manager failed to enum logs"));
    DeleteFileW(broken.c_str());

    // Removal stops at an element without logPath: the ones before it are gone.
    std::wstring bad = document;
    bad.insert(bad.find(L"    <archived_log", bad.find(L"/>")), L"    <archived_log size=\"1\" />\n");
    ASSERT_EQ(machine.RemoveLogsInTemp(bad, text), E_FAIL);
    EXPECT_EQ(util::wide_to_utf8(text), "Attribute value is not specified. Attribute: [logPath].\n"
                                        "--tr:Failed to save oracle log description\n"
                                        "--tr:Oracle manager failed to remove logs in temp");
    EXPECT_THAT(machine.Files(machine.LogsFolder()), ElementsAre("COPY.XML", "{G2}", "{G2}.xml"));
}

TEST(LogsBackup, NothingToCopyGivesABareDocumentAndAnUnwritableDescriptionFailsTheCall)
{
    const std::string bare = "<archived_logs />\n";
    {
        CLogsMachine machine("", kLogs);
        std::wstring document;
        ASSERT_EQ(machine.BackupLogs(L"99", document), S_OK) << util::wide_to_utf8(document);
        EXPECT_EQ(util::wide_to_utf8(document), bare);
        EXPECT_EQ(machine.Statements().size(), 7u);
        EXPECT_THAT(machine.Statements().back(), testing::EndsWith("AND RECID > 99"));
    }
    {
        CLogsMachine closed("status = MOUNTED\n", kLogs);
        std::wstring document;
        ASSERT_EQ(closed.BackupLogs(L"", document), S_OK) << util::wide_to_utf8(document);
        EXPECT_EQ(util::wide_to_utf8(document), bare);
        EXPECT_THAT(closed.Statements(), ElementsAre("sql sid=ORCL text=SELECT DBID FROM V$DATABASE",
                                                     "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE"));
    }
    {
        test::temp_folder_t folder;
        std::ofstream(folder.file(L"logs").c_str()) << "a file where the folder should be";
        CLogsMachine machine("", kLogs, SLogsConfig{false, true, folder.file(L"logs")});
        machine.WriteArchFile(L"ARC0000000001_0001.ARC", 1000);
        std::wstring error;
        ASSERT_EQ(machine.BackupLogs(L"", error), E_FAIL);
        EXPECT_THAT(util::wide_to_utf8(error),
                    testing::EndsWith("--tr:Failed to save oracle log description\n"
                                      "--tr:Failed to backup logs to path: " +
                                      util::wide_to_utf8(folder.file(L"logs")) +
                                      "\n--tr:Oracle manager failed to backup archived logs"));
    }
}
