// Deletion by time and by size: the class against the simulated server for
// the boundaries, the exports for the manager's steps.
#include "logs_machine.h"

#include "common/strings/strings.h"
#include "oracle/client/session_holder.h"
#include "oracle/logs/logs_remover.h"
#include "support/capturing_receiver.h"
#include "support/ocisim_world.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>

using namespace specific::oracle;
using test::CLogsMachine;
using test::OrclWithLogs;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kDelete = "sql sid=ORCL text=BEGIN\\n DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG(";

std::string Deleted(int recid, const std::string& path)
{
    return kDelete + "'" + std::to_string(recid) + "', '" + std::to_string(1000 + recid) + "', '" + path +
           "', '1', '" + std::to_string(recid) + "', '1', '" + std::to_string(recid * 1000) + "', '512');\\n END;";
}

// The journal lines that asked for a deletion, and the errors.
std::vector<std::string> Deletions(CLogsMachine& machine)
{
    return machine.Statements({kDelete, "error "});
}

ocisim::Fields Log(int recid, const std::string& first, const std::string& next, const ocisim::Fields& more = {})
{
    ocisim::Fields log = {{"name", "@ARCH@\\L" + std::to_string(recid) + ".ARC"}, {"recid", std::to_string(recid)},
                          {"stamp", std::to_string(1000 + recid)},         {"sequence", std::to_string(recid)},
                          {"first_change", std::to_string(recid * 1000)}, {"first_time", first},
                          {"next_time", next}};
    log.insert(more.begin(), more.end());
    return log;
}

// A remover of ORCL with a session of its own.
COracleLogsRemover Remover(bool deleteAbsentLogFiles)
{
    return COracleLogsRemover(std::make_shared<COracleSessionHolder>(L"ORCL", L"C:\\oracle\\home", SOracleCredentials{}, false),
                              deleteAbsentLogFiles);
}

// UTC now moved by `minutes`, in the form of the time columns.
std::string UtcFromNow(int minutes)
{
    const time_t moved = time(nullptr) + minutes * 60;
    char text[32];
    strftime(text, sizeof(text), "%Y/%m/%d %H:%M:%S", gmtime(&moved));
    return text;
}

void WriteLogFiles(const CLogsMachine& machine, int count)
{
    for (int i = 1; i <= count; ++i)
        machine.WriteArchFile(L"L" + std::to_wstring(i) + L".ARC", 1024);
}

} // namespace

TEST(LogsRemover, ByTimeRemovesLogsEndedStrictlyBeforeTheLimitAndKeepsDoubtfulOnes)
{
    CLogsMachine machine(OrclWithLogs({
        Log(1, "2024/01/01 00:00:00", "2024/01/01 01:00:00"),
        Log(2, "2024/01/01 01:00:00", "2024/01/01 02:00:00"),  // ends at the limit
        Log(3, "2024/01/01 01:00:00", "2024/01/01 01:59:59"),  // one second before it
        Log(4, "2024/01/01 01:30:00", "2024/01/01 01:20:00"),  // begins after its end
        Log(6, "2024/01/01 00:00:00", "2024/01/01 00:10:00", {{"status", "D"}}),
        Log(7, "2024/01/01 00:00:00", "2024/01/01 00:10:00", {{"creator", "LGWR"}}),
        Log(8, "2024/01/01 00:00:00", "2024/01/01 00:20:00"),  // its file is gone
    }));
    WriteLogFiles(machine, 7);
    test::log_capture_t log;
    Remover(true).RemoveLogsByTime(L"01/01/2024 02:00:00");
    Remover(true).RemoveLogsByTime(L"31/04/2024 02:00:00");
    EXPECT_THAT(Deletions(machine), ElementsAre(Deleted(1, "<ARCH>\\L1.ARC"), Deleted(3, "<ARCH>\\L3.ARC"),
                                                Deleted(8, "<ARCH>\\L8.ARC")));
    EXPECT_THAT(machine.Files(machine.ArchFolder()),
                ElementsAre("L2.ARC", "L4.ARC", "L5.ARC", "L6.ARC", "L7.ARC"));
    std::vector<std::string> removing;
    for (const std::string& line : log.texts())
        if (line.find("Removing log file") != std::string::npos || line.find("older than") != std::string::npos)
            removing.push_back(machine.Mask(line));
    EXPECT_THAT(removing,
                ElementsAre("oralib| Removing archived logs older than: 01/01/2024 02:00:00",
                            "oralib|   Removing log file. First UTC time: [2024/01/01 00:00:00], next UTC time: "
                            "[2024/01/01 01:00:00]",
                            "oralib|   Removing log file: <ARCH>\\L1.ARC",
                            "oralib|   Removing log file: <ARCH>\\L1.ARC ok.",
                            "oralib|   Removing log file. First UTC time: [2024/01/01 01:00:00], next UTC time: "
                            "[2024/01/01 01:59:59]",
                            "oralib|   Removing log file: <ARCH>\\L3.ARC",
                            "oralib|   Removing log file: <ARCH>\\L3.ARC ok.",
                            "oralib|   Removing log file. First UTC time: [2024/01/01 00:00:00], next UTC time: "
                            "[2024/01/01 00:20:00]",
                            "oralib|   Removing log file: <ARCH>\\L8.ARC",
                            "oralib|   Removing log file: <ARCH>\\L8.ARC ok.",
                            "oralib| Removing archived logs older than: 01/01/2024 02:00:00 ok.",
                            "oralib| Removing archived logs older than: 31/04/2024 02:00:00",
                            "oralib| Removing archived logs older than: 31/04/2024 02:00:00 ok."));
}

TEST(LogsRemover, BySizeKeepsLogsInRowOrderUntilTheLimitIsPassedAndGoesOnPastAFailure)
{
    std::vector<ocisim::Fields> logs;
    for (int i = 1; i <= 5; ++i)
        logs.push_back(Log(i, "2024/01/01 00:00:00", "2024/01/01 01:00:00", {{"blocks", "2"}, {"block_size", "512"}}));
    logs.push_back({{"name", "+DATA/ORCL/ARCH/L6.ARC"}, {"recid", "6"}, {"stamp", "1006"}, {"sequence", "6"}, {"first_change", "6000"}});
    logs.push_back({{"name", "+DATA/ORCL/ARCH/L7.ARC"}, {"recid", "7"}, {"stamp", "1007"}, {"sequence", "7"}, {"first_change", "7000"}});
    ocisim::InstanceSetup orcl = OrclWithLogs(logs);
    orcl.records.emplace_back("fault", ocisim::Fields{{"kind", "error"}, {"text", "'4', '1004'"}, {"code", "19571"}, {"times", "1"}});
    CLogsMachine machine(orcl);
    WriteLogFiles(machine, 4);
    // 2048 bytes: the first two logs reach it, the third passes it and is kept too.
    Remover(false).RemoveLogsBySize(2048);
    Remover(false).RemoveLogsBySize(UINT64_MAX);
    // Log 4 fails and stays, log 5's file is gone and its record stays; the
    // logs on ASM are looked up on ASM, not on the disk.
    EXPECT_THAT(Deletions(machine), ElementsAre(Deleted(4, "<ARCH>\\L4.ARC"), "error sid=ORCL code=19571",
                                                Deleted(6, "+DATA/ORCL/ARCH/L6.ARC"),
                                                Deleted(7, "+DATA/ORCL/ARCH/L7.ARC")));
    EXPECT_THAT(machine.Statements({"bind name=:fname"}), ElementsAre("bind name=:fname value=+DATA/ORCL/ARCH/L6.ARC",
                                   "bind name=:fname value=+DATA/ORCL/ARCH/L7.ARC"));
    EXPECT_THAT(machine.Files(machine.ArchFolder()), ElementsAre("L1.ARC", "L2.ARC", "L3.ARC", "L4.ARC"));
}

TEST(LogsRemover, ExportsDeleteByTimeUnderAnotherZoneAndStopSilentlyAtAClosedDatabase)
{
    // Local time far from UTC: a limit taken from the local clock would be hours off.
    const test::time_zone_override_t zone("JST-9");
    CLogsMachine machine(OrclWithLogs({
        Log(1, UtcFromNow(-30), UtcFromNow(-10)),
        Log(2, UtcFromNow(-10), UtcFromNow(-3)),
        Log(3, UtcFromNow(-3), UtcFromNow(60)),
    }));
    WriteLogFiles(machine, 3);
    std::wstring error;
    EXPECT_EQ(machine.DeleteLogsByTime(5, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_EQ(machine.DeleteLogsBySize(0, error), S_OK) << util::wide_to_utf8(error);
    EXPECT_THAT(machine.Files(machine.ArchFolder()), ElementsAre("L2.ARC"));
    std::vector<std::string> removed;
    for (const std::string& line : Deletions(machine))
        removed.push_back(line.substr(kDelete.size(), 4));
    EXPECT_THAT(removed, ElementsAre("'1',", "'3',"));

    // A huge or negative minute count fails clearly or deletes nothing, never crashes.
    EXPECT_EQ(machine.DeleteLogsByTime(INT32_MAX, error), E_FAIL);
    EXPECT_EQ(util::wide_to_utf8(error),
              "The time 2147483647 minutes before now has no UTC form.\n"
              "--tr:Oracle manager failed to delete archived logs by time");
    EXPECT_EQ(machine.DeleteLogsByTime(-60, error), S_OK);
    EXPECT_THAT(machine.Files(machine.ArchFolder()), IsEmpty());
}

TEST(LogsRemover, ClosedDatabaseIsASilentSuccessWithNoStatementPastTheStatusProbe)
{
    CLogsMachine mounted(OrclWithLogs({Log(1, "2024/01/01 00:00:00", "2024/01/01 01:00:00")}, {{"status", "MOUNTED"}}));
    WriteLogFiles(mounted, 1);
    std::wstring text;
    EXPECT_EQ(mounted.BackupLogs(L"", text), S_OK) << util::wide_to_utf8(text);
    EXPECT_EQ(util::wide_to_utf8(text), "<archived_logs />\n");
    EXPECT_EQ(mounted.DeleteLogsByTime(0, text), S_OK) << util::wide_to_utf8(text);
    EXPECT_EQ(mounted.DeleteLogsBySize(0, text), S_OK) << util::wide_to_utf8(text);
    EXPECT_THAT(mounted.Statements(), ElementsAre("sql sid=ORCL text=SELECT DBID FROM V$DATABASE",
                                                  "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE",
                                                  "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE",
                                                  "sql sid=ORCL text=SELECT STATUS FROM V$INSTANCE"));
    EXPECT_THAT(mounted.Files(mounted.ArchFolder()), ElementsAre("L1.ARC"));
}
