#include "oracle/client/asm_files.h"

#include "oracle/client/oracle_session.h"
#include "support/capturing_receiver.h"
#include "support/ocisim_world.h"
#include "support/temp_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <fstream>
#include <regex>

using namespace specific::oracle;
using CSimWorld = test::ocisim_world_t;
using testing::ElementsAre;

namespace {

TEST(AsmFiles, AsmFileAttributesBindPathAndThreeIntegersAndFailureIsFalse)
{
    CSimWorld world({{"ORCL", {}, {{"asm_file", {{"name", "+DATA/orcl/1_5.arc"}, {"blocks", "7"}, {"type", "4"}}}}}});
    auto session = test::sim_session();
    test::strict_log_t log;
    EXPECT_TRUE(GetAsmFileAttr(session, "+DATA/orcl/1_5.arc"));
    EXPECT_EQ(log.take().back(), "oralib| ASM file: +DATA/orcl/1_5.arc, type: 4, size: 7");
    EXPECT_THAT(world.take_statements(), ElementsAre("bind name=:fname value=+DATA/orcl/1_5.arc", "bind name=:ftype value=0",
                                              "bind name=:fsize value=0", "bind name=:blksize value=0",
                                              "sql sid=ORCL text=BEGIN \\n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \\n END;"));
    EXPECT_FALSE(GetAsmFileAttr(session, "+DATA/orcl/none.arc"));
    EXPECT_THAT(log.take(), testing::Contains("oralib| WARN|Failed to check if ASM file exists: [+DATA/orcl/none.arc]"));
}

TEST(AsmFiles, CopyRunsFiveStatementsWithTwoFreshDirectoryObjects)
{
    test::temp_folder_t folder;
    CreateDirectoryW(folder.file(L"from").c_str(), nullptr);
    CreateDirectoryW(folder.file(L"to").c_str(), nullptr);
    std::ofstream(folder.file(L"from\\1_5.arc").c_str()) << "redo";
    const std::string from = folder.file_utf8("from");
    const std::string to = folder.file_utf8("to");
    CSimWorld world({{"ORCL"}});
    CopyAsmFile(test::sim_session(), from + "\\1_5.arc", to + "/copy.arc");

    const std::vector<std::string> lines = world.take_statements();
    ASSERT_EQ(lines.size(), 5u);
    const std::string prefix = "sql sid=ORCL text=CREATE DIRECTORY ";
    const std::string source = lines[0].substr(prefix.size(), 26);
    const std::string target = lines[1].substr(prefix.size(), 26);
    // A letter, then the GUID with its dashes made underscores: a valid object name.
    const std::regex objectName("[A-Z]_[0-9A-F]{8}_[0-9A-F]{4}_[0-9A-F]{4}_[0-9A-F]{4}_");
    EXPECT_TRUE(std::regex_match(source, objectName)) << source;
    EXPECT_TRUE(std::regex_match(target, objectName)) << target;
    EXPECT_NE(source, target);
    EXPECT_EQ(lines[0], prefix + source + " AS '" + from + "'");
    EXPECT_EQ(lines[1], prefix + target + " AS '" + to + "'");
    EXPECT_EQ(lines[2], "sql sid=ORCL text=BEGIN\\n DBMS_FILE_TRANSFER.COPY_FILE('" + source + "', '1_5.arc', '" +
                            target + "', 'copy.arc');\\n END;");
    EXPECT_EQ(lines[3], "sql sid=ORCL text=DROP DIRECTORY " + source);
    EXPECT_EQ(lines[4], "sql sid=ORCL text=DROP DIRECTORY " + target);
    EXPECT_NE(GetFileAttributesW(folder.file(L"to\\copy.arc").c_str()), INVALID_FILE_ATTRIBUTES);
}
} // namespace
