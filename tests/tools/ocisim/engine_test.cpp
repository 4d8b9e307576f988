#include "ocisim/scenario_builder.h"
#include "ocisim/sql_engine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace ocisim {
namespace {

const SessionRights kSysdba{true, false};
const SessionRights kPlain{false, false};

std::string time_of(const std::string& column) {
    return "TO_CHAR(SYS_EXTRACT_UTC(CAST(" + column + " AS TIMESTAMP)), 'yyyy/mm/dd hh24:mi:ss')";
}

class EngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = std::filesystem::temp_directory_path() / "ocisim_engine_test";
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        db_ = &add_typical_database(world_, "ORCL", dir_.u8string());
        create_log_files(*db_);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    ResultSet run(const std::string& text, SessionRights rights = kSysdba) {
        Binds binds;
        Engine engine(*db_, rights);
        return engine.execute(text, binds);
    }

    // The error number a statement fails with, 0 when it succeeds.
    int error_of(const std::string& text, SessionRights rights = kSysdba) {
        try {
            run(text, rights);
        } catch (const OraError& e) {
            return e.code();
        }
        return 0;
    }

    std::string value(const std::string& text) {
        const ResultSet result = run(text);
        return result.rows.empty() ? "(no row)" : result.rows[0][0];
    }

    void shutdown(std::uint32_t mode) { Engine(*db_, kSysdba).shutdown(mode); }

    std::filesystem::path dir_;
    World world_;
    Instance* db_ = nullptr;
};

TEST_F(EngineTest, OnlyTheExactStatementTextsAreUnderstood) {
    EXPECT_EQ(value("SELECT STATUS FROM V$INSTANCE"), "OPEN");
    EXPECT_EQ(error_of("SELECT STATUS FROM V$INSTANCE "), 900);
    EXPECT_EQ(error_of("select status from v$instance"), 900);
    EXPECT_EQ(error_of("SELECT  STATUS FROM V$INSTANCE"), 900);
    EXPECT_EQ(error_of("SELECT NAME FROM V$CONTROLFILE WHERE ROWNUM = 1"), 900);
    EXPECT_EQ(error_of("DROP TABLESPACE USERS"), 900);
    EXPECT_EQ(value("SELECT version FROM V$INSTANCE"), "19.0.0.0.0");
}

TEST_F(EngineTest, ShutdownStepsMoveTheInstanceDownOneStateAtATime) {
    shutdown(kShutdownImmediate);
    EXPECT_EQ(db_->get("status"), "OPEN");
    run("ALTER DATABASE CLOSE NORMAL");
    EXPECT_EQ(value("SELECT STATUS FROM V$INSTANCE"), "MOUNTED");
    EXPECT_EQ(value("SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE"), "MOUNTED");
    run("ALTER DATABASE DISMOUNT");
    EXPECT_EQ(value("SELECT STATUS FROM V$INSTANCE"), "STARTED");
    EXPECT_EQ(error_of("SELECT NAME FROM V$DATABASE"), 1507);
    shutdown(kShutdownFinal);
    EXPECT_EQ(db_->get("status"), "DOWN");
    EXPECT_EQ(error_of("SELECT STATUS FROM V$INSTANCE"), 3113);
}

TEST_F(EngineTest, FinalShutdownOfAnOpenDatabaseIsRefusedAndChangesNothing) {
    Engine engine(*db_, kSysdba);
    EXPECT_THROW(engine.shutdown(kShutdownFinal), OraError);
    EXPECT_EQ(db_->get("status"), "OPEN");
    EXPECT_FALSE(engine.changed());
}

TEST_F(EngineTest, StartupMountAndOpenBringTheDatabaseBack) {
    db_->set("status", "DOWN");
    Engine(*db_, SessionRights{true, true}).startup();
    EXPECT_EQ(db_->get("status"), "STARTED");
    EXPECT_EQ(error_of("ALTER DATABASE OPEN"), 1507);
    run("ALTER DATABASE MOUNT");
    EXPECT_EQ(error_of("ALTER DATABASE MOUNT"), 1100);
    run("ALTER DATABASE OPEN");
    EXPECT_EQ(value("SELECT STATUS FROM V$INSTANCE"), "OPEN");
    EXPECT_EQ(error_of("ALTER DATABASE OPEN"), 1531);
    try {
        Engine(*db_, SessionRights{true, true}).startup();
        FAIL() << "a running instance was started again";
    } catch (const OraError& e) {
        EXPECT_EQ(e.code(), 1081);
    }
}

TEST_F(EngineTest, InstanceChangesNeedSysdbaAndPreliminarySessionsRunNoSql) {
    EXPECT_EQ(error_of("ALTER DATABASE CLOSE NORMAL", kPlain), 1031);
    EXPECT_EQ(error_of("SELECT STATUS FROM V$INSTANCE", SessionRights{true, true}), 1012);
    EXPECT_EQ(db_->get("status"), "OPEN");
}

TEST_F(EngineTest, BackupModeCoversAllDataFilesAndBlocksCloseAndOpen) {
    run("ALTER DATABASE BEGIN BACKUP");
    for (const auto& row : run("SELECT STATUS FROM V$BACKUP").rows) EXPECT_EQ(row[0], "ACTIVE");
    EXPECT_EQ(error_of("ALTER DATABASE BEGIN BACKUP"), 1146);
    EXPECT_EQ(error_of("ALTER DATABASE CLOSE NORMAL"), 1149);

    db_->set("status", "MOUNTED");  // a machine restored from the snapshot
    EXPECT_EQ(error_of("ALTER DATABASE OPEN"), 10873);
    run("ALTER DATABASE END BACKUP");
    EXPECT_EQ(error_of("ALTER DATABASE END BACKUP"), 1142);
    run("ALTER DATABASE OPEN");
    EXPECT_EQ(value("SELECT STATUS FROM V$BACKUP"), "NOT ACTIVE");
}

TEST_F(EngineTest, BeginBackupNeedsArchiveLoggingAndAnOpenDatabase) {
    db_->set("log_mode", "NOARCHIVELOG");
    EXPECT_EQ(error_of("ALTER DATABASE BEGIN BACKUP"), 1123);
    db_->set("log_mode", "ARCHIVELOG");
    db_->set("status", "MOUNTED");
    EXPECT_EQ(error_of("ALTER DATABASE BEGIN BACKUP"), 1109);
}

TEST_F(EngineTest, ArchiveLogCurrentAddsTheNextLogAndWritesItsFile) {
    db_->set("current_scn", "999999");
    run("ALTER SYSTEM ARCHIVE LOG CURRENT");
    const auto logs = db_->records("archived_log");
    ASSERT_EQ(logs.size(), 4u);
    const Record& added = *logs.back();
    EXPECT_EQ(added.get("recid"), "4");
    EXPECT_EQ(added.get("sequence"), "4");
    EXPECT_EQ(added.get("first_change"), logs[2]->get("next_change"));
    EXPECT_EQ(added.get("next_change"), "999999");
    EXPECT_EQ(value("SELECT CURRENT_SCN FROM V$DATABASE"), "1000999");
    EXPECT_EQ(added.get("name"), (dir_ / "arch" / "ARC0000000004_0001.ARC").u8string());
    EXPECT_EQ(std::filesystem::file_size(std::filesystem::u8path(added.get("name"))), 1024u);
    EXPECT_EQ(value("SELECT MAX(SEQUENCE#) FROM V$ARCHIVED_LOG WHERE STATUS != 'D'"), "4");
}

TEST_F(EngineTest, ArchiveLogAllArchivesOnlyWhatIsPending) {
    EXPECT_EQ(error_of("ALTER SYSTEM ARCHIVE LOG ALL"), 271);
    db_->set("unarchived_logs", "2");
    run("ALTER SYSTEM ARCHIVE LOG ALL");
    EXPECT_EQ(db_->records("archived_log").size(), 5u);
    EXPECT_EQ(db_->get("unarchived_logs"), "0");
    db_->set("archive_dest", "");
    EXPECT_EQ(error_of("ALTER SYSTEM ARCHIVE LOG CURRENT"), 16014);
    db_->set("log_mode", "NOARCHIVELOG");
    EXPECT_EQ(error_of("ALTER SYSTEM ARCHIVE LOG CURRENT"), 258);
}

TEST_F(EngineTest, DeletedLogLosesItsFileAndDropsOutOfTheActiveListings) {
    const std::string name = db_->records("archived_log")[1]->get("name");
    const std::string call = "BEGIN\n DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG('2', '" +
                             db_->records("archived_log")[1]->get("stamp") + "', '" + name +
                             "', '1', '2', '1', '2000', '512');\n END;";
    run(call);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::u8path(name)));
    EXPECT_EQ(error_of(call), 19571);

    const std::string collector = "SELECT NAME, FIRST_CHANGE#, NEXT_CHANGE#, BLOCKS*BLOCK_SIZE, \t\t\t" +
                                  time_of("FIRST_TIME") + ", " + time_of("NEXT_TIME") +
                                  ", SEQUENCE# FROM V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR'";
    EXPECT_EQ(run(collector).rows.size(), 2u);
    EXPECT_EQ(run(collector + " AND RECID >= 3").rows.size(), 1u);

    const std::string copy = "SELECT FIRST_CHANGE#, " + time_of("FIRST_TIME") + ", NEXT_CHANGE#, " +
                             time_of("NEXT_TIME") +
                             ", NAME, SEQUENCE#, RECID, STAMP FROM V$ARCHIVED_LOG WHERE CREATOR != 'LGWR'";
    const ResultSet all = run(copy + " AND RECID > 1");
    ASSERT_EQ(all.rows.size(), 2u);
    EXPECT_EQ(all.columns, 8u);
    EXPECT_EQ(all.rows[0][4], "") << "a deleted log is listed with a NULL name";
    EXPECT_EQ(error_of(copy + " AND RECID > x"), 904);
}

TEST_F(EngineTest, DeleteChecksTheLogDescriptionAgainstTheControlFile) {
    const Record& log = *db_->records("archived_log")[0];
    EXPECT_EQ(error_of("BEGIN\n DBMS_BACKUP_RESTORE.DELETEARCHIVEDLOG('1', '" + log.get("stamp") + "', '" +
                       log.get("name") + "', '1', '7', '1', '1000', '512');\n END;"),
              19563);
    EXPECT_EQ(log.get("status"), "A");
}

TEST_F(EngineTest, ActiveLogListingGivesElevenColumnsInTheirOrder) {
    const std::string text = "SELECT FIRST_CHANGE#, BLOCK_SIZE, RECID, STAMP, NAME, \t\t\tTHREAD#, SEQUENCE#, "
                             "RESETLOGS_CHANGE#, BLOCKS*BLOCK_SIZE, \t\t\t" +
                             time_of("FIRST_TIME") + ", " + time_of("NEXT_TIME") +
                             " FROM V$ARCHIVED_LOG WHERE STATUS != 'D' AND CREATOR != 'LGWR'";
    db_->records("archived_log")[2]->set("creator", "LGWR");
    const ResultSet result = run(text);
    ASSERT_EQ(result.rows.size(), 2u);
    const Record& first = *db_->records("archived_log")[0];
    EXPECT_EQ(result.rows[0],
              (std::vector<std::string>{"1000", "512", "1", first.get("stamp"), first.get("name"), "1", "1", "1",
                                        "1024", "2024/01/01 00:00:00", "2024/01/01 01:00:00"}));
}

TEST_F(EngineTest, ValuesThatAreNotSetComeBackAsNull) {
    EXPECT_EQ(value("SELECT SYS_CONTEXT('USERENV','DB_DOMAIN') FROM DUAL"), "");
    EXPECT_EQ(value("SELECT NAME FROM V$RECOVERY_FILE_DEST"), "");
    EXPECT_EQ(value("SELECT VALUE FROM V$PARAMETER WHERE NAME='cluster_database'"), "(no row)");
    db_->add("parameter", {{"name", "cluster_database"}, {"value", "FALSE"}});
    db_->add("parameter", {{"name", "local_listener"}, {"value", "LISTENER_ORCL"}});
    db_->add("parameter", {{"name", "listener"}, {"value", "not matched by '%_listener'"}});
    EXPECT_EQ(value("SELECT VALUE FROM V$PARAMETER WHERE NAME='cluster_database'"), "FALSE");
    EXPECT_EQ(run("SELECT NAME, VALUE FROM V$PARAMETER WHERE NAME LIKE '%_listener'").rows,
              (std::vector<std::vector<std::string>>{{"local_listener", "LISTENER_ORCL"}}));
}

TEST_F(EngineTest, PluggableDatabasesExistFromVersion12AndReopenOneByOne) {
    db_->set("version", "11.2.0.4.0");
    EXPECT_EQ(error_of("SELECT CDB FROM V$DATABASE"), 904);
    EXPECT_EQ(error_of("SELECT NAME, GUID FROM V$PDBS"), 942);

    db_->set("version", "19.0.0.0.0");
    db_->set("cdb", "YES");
    db_->add("pdb", {{"name", "PDB$SEED"}, {"guid", "A1"}, {"open_mode", "READ ONLY"}});
    db_->add("pdb", {{"name", "SALES"}, {"guid", "B2"}});
    db_->set("status", "MOUNTED");
    run("ALTER DATABASE OPEN");
    EXPECT_EQ(value("SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'SALES'"), "MOUNTED");
    EXPECT_EQ(value("SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'PDB$SEED'"), "READ ONLY");
    run("ALTER PLUGGABLE DATABASE \"SALES\" OPEN UPGRADE");
    EXPECT_EQ(value("SELECT OPEN_MODE FROM V$PDBS WHERE NAME = 'SALES'"), "MIGRATE");
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"SALES\" OPEN READ WRITE"), 65019);
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"sales\" OPEN READ WRITE"), 65011);
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"SALES\" OPEN MIGRATE"), 900);
}

TEST_F(EngineTest, AsmFilesAreKnownToGetFileAttrAndCopyOut) {
    db_->add("asm_file", {{"name", "+DATA/ORCL/ARCH/7.ARC"}, {"blocks", "3"}, {"block_size", "512"}, {"type", "4"}});
    Binds binds{{":FNAME", {false, "+DATA/ORCL/ARCH/7.ARC", 0}},
                {":FTYPE", {true, "", 0}},
                {":FSIZE", {true, "", 0}},
                {":BLKSIZE", {true, "", 0}}};
    const std::string attr = "BEGIN \n DBMS_DISKGROUP.GETFILEATTR(:fname,:ftype,:fsize,:blksize); \n END;";
    Engine(*db_, kSysdba).execute(attr, binds);
    EXPECT_EQ(binds[":FTYPE"].number, 4);
    EXPECT_EQ(binds[":FSIZE"].number, 3);
    EXPECT_EQ(binds[":BLKSIZE"].number, 512);
    binds[":FNAME"].text = "+DATA/ORCL/ARCH/8.ARC";
    try {
        Engine(*db_, kSysdba).execute(attr, binds);
        FAIL() << "an unknown ASM file had attributes";
    } catch (const OraError& e) {
        EXPECT_EQ(e.code(), 15056);
    }

    run("CREATE DIRECTORY S1 AS '+DATA/ORCL/ARCH'");
    run("CREATE DIRECTORY D1 AS '" + dir_.u8string() + "'");
    EXPECT_EQ(error_of("CREATE DIRECTORY d1 AS 'C:\\x'"), 955);
    run("BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('S1', '7.ARC', 'D1', 'copy.arc');\n END;");
    EXPECT_EQ(std::filesystem::file_size(dir_ / "copy.arc"), 1536u);
    EXPECT_EQ(error_of("BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('S1', '7.ARC', 'D1', 'copy.arc');\n END;"), 19504);
    EXPECT_EQ(error_of("BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('s1', '7.ARC', 'D1', 'other.arc');\n END;"), 22285);
    run("BEGIN\n UTL_FILE.FREMOVE('D1', 'copy.arc');\n END;");
    EXPECT_FALSE(std::filesystem::exists(dir_ / "copy.arc"));
    EXPECT_EQ(error_of("BEGIN\n UTL_FILE.FREMOVE('D1', 'copy.arc');\n END;"), 29283);
    run("DROP DIRECTORY S1");
    EXPECT_EQ(error_of("DROP DIRECTORY S1"), 4043);
}

TEST_F(EngineTest, PfileIsWrittenFromTheParametersUnlessThereIsNoSpfile) {
    db_->add("parameter", {{"name", "processes"}, {"value", "300"}});
    const std::string path = (dir_ / "init.tmp").u8string();
    run("create pfile='" + path + "' from spfile");
    std::ifstream in(dir_ / "init.tmp");
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(content, "*.db_name='ORCL'\n*.processes=300\n");
    db_->set("spfile", "no");
    EXPECT_EQ(error_of("create pfile='" + path + "' from spfile"), 1565);
    EXPECT_EQ(error_of("create pfile='" + path + "' from memory", kPlain), 1031);
}

TEST(Logon, CredentialsAndModesDecideTheAnswer) {
    World world;
    Instance& db = world.add_instance("ORCL");
    db.add("user", {{"name", "sys"}, {"password", "pw"}, {"sysdba", "yes"}});
    db.add("user", {{"name", "scott"}, {"password", "tiger"}});
    const auto answer = [&db](bool external, const std::string& login, const std::string& password, bool sysdba,
                              bool prelim) {
        try {
            check_logon(db, external, login, password, sysdba, prelim);
        } catch (const OraError& e) {
            return e.code();
        }
        return 0;
    };
    EXPECT_EQ(answer(true, "", "", true, false), 0);
    EXPECT_EQ(answer(true, "", "", false, false), 1017);
    EXPECT_EQ(answer(false, "SYS", "pw", true, false), 0);
    EXPECT_EQ(answer(false, "sys", "PW", true, false), 1017);
    EXPECT_EQ(answer(false, "scott", "tiger", true, false), 1031);
    EXPECT_EQ(answer(false, "scott", "tiger", false, false), 0);
    EXPECT_EQ(answer(false, "scott", "tiger", false, true), 24300);

    db.set("os_sysdba", "no");
    EXPECT_EQ(answer(true, "", "", true, false), 1031);

    db.set("status", "DOWN");
    EXPECT_EQ(answer(false, "sys", "pw", true, false), 1034);
    EXPECT_EQ(answer(false, "sys", "pw", true, true), 0);
    EXPECT_EQ(answer(false, "scott", "wrong", false, false), 1034);
}

TEST(Faults, LimitedFaultsAreUsedUpAndStatusFaultsMatchBothStatusQueries) {
    World world;
    Instance& db = world.add_instance("ORCL");
    db.add("fault", {{"kind", "error"}, {"text", "BEGIN BACKUP"}, {"code", "1652"}, {"times", "1"}});
    db.add("fault", {{"kind", "hang"}, {"at", "status"}});

    EXPECT_FALSE(take_fault(db, "sql", "ALTER DATABASE END BACKUP").hit);
    const FaultHit first = take_fault(db, "sql", "ALTER DATABASE BEGIN BACKUP");
    EXPECT_TRUE(first.hit);
    EXPECT_TRUE(first.changed);
    EXPECT_EQ(first.fault.get("code"), "1652");
    EXPECT_FALSE(take_fault(db, "sql", "ALTER DATABASE BEGIN BACKUP").hit);

    EXPECT_EQ(take_fault(db, "sql", "SELECT DATABASE_STATUS FROM V$INSTANCE").fault.get("kind"), "hang");
    EXPECT_TRUE(take_fault(db, "sql", "SELECT STATUS FROM V$INSTANCE").hit);
    EXPECT_FALSE(take_fault(db, "sql", "SELECT VERSION FROM V$INSTANCE").hit);
    EXPECT_FALSE(take_fault(db, "attach", "").hit);
}

TEST(Templates, PartsAreCapturedInNumberOrderWithBacktracking) {
    std::vector<std::string> parts;
    EXPECT_TRUE(match_template("X '%2' AND '%1'", "X 'a' AND 'b' AND 'c'", parts));
    EXPECT_EQ(parts, (std::vector<std::string>{"b' AND 'c", "a"}));
    EXPECT_FALSE(match_template("DROP DIRECTORY %1", "DROP DIRECTORY ", parts));
    EXPECT_TRUE(match_template("LIKE 'Oracle%'", "LIKE 'Oracle%'", parts));
    EXPECT_FALSE(match_template("LIKE 'Oracle%'", "LIKE 'Oracle'", parts));
}

TEST(Templates, PlaceholdersInsideQuotesAreNotVariables) {
    EXPECT_EQ(placeholders("BEGIN X(:fname,:Ftype); Y('C:\\a:b', 'hh24:mi'); END;"),
              (std::vector<std::string>{":FNAME", ":FTYPE"}));
}

}  // namespace
}  // namespace ocisim
