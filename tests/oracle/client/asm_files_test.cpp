#include "oracle/client/asm_files.h"

#include "oracle/client/oracle_session.h"
#include "support/capturing_receiver.h"
#include "support/ocisim_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

} // namespace
