#include "ocisim/scenario_builder.h"
#include "ocisim/sql_engine.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace ocisim {
namespace {

const SessionRights kSysdba{true, false};
const SessionRights kPlain{false, false};

// The error number `call` fails with, 0 when it succeeds.
template <class Call>
int code_of(Call call) {
    try {
        call();
    } catch (const OraError& e) {
        return e.code();
    }
    return 0;
}

class EngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        db_ = &add_typical_database(world_, "ORCL", dir_.file_utf8("db"));
    }

    ResultSet run(const std::string& text) {
        Binds binds;
        return Engine(*db_, kSysdba).execute(text, binds);
    }

    int error_of(const std::string& text) { return code_of([&] { run(text); }); }

    std::string value(const std::string& text) {
        const ResultSet result = run(text);
        return result.rows.empty() ? "(no row)" : result.rows[0][0];
    }

    test::temp_folder_t dir_;
    World world_;
    Instance* db_ = nullptr;
};

std::string text_of(const World& world) {
    std::ostringstream out;
    write_world(out, world);
    return out.str();
}

TEST_F(EngineTest, RefusedStatementsGiveTheirErrorAndChangeNothing) {
    const SessionRights prelim{true, true};
    const std::string folder = std::filesystem::path(dir_.path()).u8string();
    const std::string make_d1 = "CREATE DIRECTORY D1 AS '" + folder + "'";
    struct Case {
        std::vector<std::string> before;  // run first, then `set` is applied
        std::vector<std::pair<std::string, std::string>> set;
        std::string text;
        int code;
        SessionRights rights = kSysdba;
    };
    const Case cases[] = {
        {{}, {}, "SELECT STATUS FROM V$INSTANCE ", 900},
        {{}, {}, "select status from v$instance", 900},
        {{}, {}, "SELECT  STATUS FROM V$INSTANCE", 900},
        {{}, {}, "SELECT NAME FROM V$CONTROLFILE WHERE ROWNUM = 1", 900},
        {{}, {}, "DROP TABLESPACE USERS", 900},
        {{}, {}, "ALTER DATABASE CLOSE NORMAL", 1031, kPlain},
        {{}, {}, "SELECT STATUS FROM V$INSTANCE", 1012, prelim},
        {{}, {{"status", "DOWN"}}, "SELECT STATUS FROM V$INSTANCE", 3113},
        {{}, {{"status", "STARTED"}}, "SELECT NAME FROM V$DATABASE", 1507},
        {{}, {{"status", "STARTED"}}, "ALTER DATABASE OPEN", 1507},
        {{}, {{"status", "MOUNTED"}}, "ALTER DATABASE MOUNT", 1100},
        {{}, {}, "ALTER DATABASE OPEN", 1531},
        {{}, {{"log_mode", "NOARCHIVELOG"}}, "ALTER DATABASE BEGIN BACKUP", 1123},
        {{}, {{"status", "MOUNTED"}}, "ALTER DATABASE BEGIN BACKUP", 1109},
        {{"ALTER DATABASE BEGIN BACKUP"}, {}, "ALTER DATABASE BEGIN BACKUP", 1146},
        {{"ALTER DATABASE BEGIN BACKUP"}, {}, "ALTER DATABASE CLOSE NORMAL", 1149},
        // a machine restored from a snapshot taken in backup mode
        {{"ALTER DATABASE BEGIN BACKUP"}, {{"status", "MOUNTED"}}, "ALTER DATABASE OPEN", 10873},
        {{}, {}, "ALTER DATABASE END BACKUP", 1142},
        {{}, {{"archive_dest", ""}}, "ALTER SYSTEM ARCHIVE LOG CURRENT", 16014},
        {{}, {{"log_mode", "NOARCHIVELOG"}}, "ALTER SYSTEM ARCHIVE LOG CURRENT", 258},
        {{}, {{"version", "11.2.0.4.0"}}, "SELECT CDB FROM V$DATABASE", 904},
        {{}, {{"version", "11.2.0.4.0"}}, "SELECT NAME, GUID FROM V$PDBS", 942},
        {{}, {{"spfile", "no"}}, "create pfile='" + folder + "\\init.tmp' from spfile", 1565},
        {{}, {}, "create pfile='" + folder + "\\init.tmp' from memory", 1031, kPlain},
        {{make_d1}, {}, "CREATE DIRECTORY d1 AS 'C:\\x'", 955},
        {{}, {}, "DROP DIRECTORY S1", 4043},
        {{make_d1}, {}, "BEGIN\n DBMS_FILE_TRANSFER.COPY_FILE('S1', '7.ARC', 'D1', 'copy.arc');\n END;", 22285},
        {{make_d1}, {}, "BEGIN\n UTL_FILE.FREMOVE('D1', 'missing.arc');\n END;", 29283},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        World world;
        Instance& db = add_typical_database(world, "ORCL", dir_.file_utf8("db"));
        Binds binds;
        for (const std::string& text : c.before) Engine(db, kSysdba).execute(text, binds);
        for (const auto& [key, value] : c.set) db.set(key, value);
        const std::string before = text_of(world);
        Engine engine(db, c.rights);
        EXPECT_EQ(code_of([&] { engine.execute(c.text, binds); }), c.code);
        EXPECT_FALSE(engine.changed());
        EXPECT_EQ(text_of(world), before);
    }
    EXPECT_FALSE(std::filesystem::exists(dir_.file(L"init.tmp")));
}

// The whole shutdown and startup sequence is run by the library's session tests; these
// are the steps it doesn't reach.
TEST_F(EngineTest, InstanceStateStepsRefuseToSkipAState) {
    Engine engine(*db_, kSysdba);
    EXPECT_EQ(code_of([&] { engine.shutdown(kShutdownFinal); }), 1106) << "final shutdown of an open database";
    EXPECT_FALSE(engine.changed());
    run("ALTER DATABASE CLOSE NORMAL");
    EXPECT_EQ(value("SELECT OPEN_MODE, LOG_MODE FROM V$DATABASE"), "MOUNTED");
    const auto startup = [this] { Engine(*db_, SessionRights{true, true}).startup(); };
    EXPECT_EQ(code_of(startup), 1081);
    run("ALTER DATABASE OPEN");
    EXPECT_EQ(value("SELECT STATUS FROM V$INSTANCE"), "OPEN");
}

TEST_F(EngineTest, BackupModeCoversAllDataFilesUntilItEnds) {
    run("ALTER DATABASE BEGIN BACKUP");
    EXPECT_EQ(run("SELECT STATUS FROM V$BACKUP").rows,
              (std::vector<std::vector<std::string>>(3, std::vector<std::string>{"ACTIVE"})));
    db_->set("status", "MOUNTED");
    run("ALTER DATABASE END BACKUP");
    run("ALTER DATABASE OPEN");
    EXPECT_EQ(value("SELECT STATUS FROM V$BACKUP"), "NOT ACTIVE");
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

TEST_F(EngineTest, PluggableDatabasesReopenOneByOne) {
    db_->set("cdb", "YES");
    db_->add("pdb", {{"name", "PDB$SEED"}, {"guid", "A1"}, {"open_mode", "READ ONLY"}});
    db_->add("pdb", {{"name", "SALES"}, {"guid", "B2"}});
    db_->set("status", "MOUNTED");
    run("ALTER DATABASE OPEN");
    const auto mode_of = [this](const std::string& pdb) {
        return value("SELECT OPEN_MODE FROM V$PDBS WHERE NAME = '" + pdb + "'");
    };
    EXPECT_EQ(mode_of("SALES"), "MOUNTED");
    EXPECT_EQ(mode_of("PDB$SEED"), "READ ONLY");
    run("ALTER PLUGGABLE DATABASE \"SALES\" OPEN UPGRADE");
    EXPECT_EQ(mode_of("SALES"), "MIGRATE");
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"SALES\" OPEN READ WRITE"), 65019);
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"sales\" OPEN READ WRITE"), 65011);
    EXPECT_EQ(error_of("ALTER PLUGGABLE DATABASE \"SALES\" OPEN MIGRATE"), 900);
}

TEST_F(EngineTest, PfileIsWrittenFromTheParameters) {
    db_->add("parameter", {{"name", "processes"}, {"value", "300"}});
    run("create pfile='" + dir_.file_utf8("init.tmp") + "' from spfile");
    EXPECT_EQ(test::read_file_text(dir_.file(L"init.tmp")), "*.db_name='ORCL'\n*.processes=300\n");
}

TEST(Logon, CredentialsAndModesDecideTheAnswer) {
    World world;
    Instance& db = world.add_instance("ORCL");
    db.add("user", {{"name", "sys"}, {"password", "pw"}, {"sysdba", "yes"}});
    db.add("user", {{"name", "scott"}, {"password", "tiger"}});
    struct Case { const char* status; bool external; const char *login, *password; bool sysdba, prelim; int code; };
    const Case cases[] = {
        {"OPEN", true, "", "", false, false, 1017},       {"OPEN", false, "SYS", "pw", true, false, 0},
        {"OPEN", false, "sys", "PW", true, false, 1017},  {"OPEN", false, "scott", "tiger", false, true, 24300},
        {"DOWN", false, "sys", "pw", true, false, 1034},  {"DOWN", false, "sys", "pw", true, true, 0},
        {"DOWN", false, "scott", "wrong", false, false, 1034},
    };
    for (const Case& c : cases) {
        db.set("status", c.status);
        EXPECT_EQ(code_of([&] { check_logon(db, c.external, c.login, c.password, c.sysdba, c.prelim); }), c.code)
            << c.status << " " << c.login << "/" << c.password << " sysdba=" << c.sysdba << " prelim=" << c.prelim;
    }
}

TEST(Faults, StatusFaultsMatchBothStatusQueriesOnly) {
    World world;
    Instance& db = world.add_instance("ORCL");
    db.add("fault", {{"kind", "hang"}, {"at", "status"}});
    EXPECT_EQ(take_fault(db, "sql", "SELECT DATABASE_STATUS FROM V$INSTANCE").fault.get("kind"), "hang");
    EXPECT_TRUE(take_fault(db, "sql", "SELECT STATUS FROM V$INSTANCE").hit);
    EXPECT_FALSE(take_fault(db, "sql", "SELECT VERSION FROM V$INSTANCE").hit);
}

TEST(Templates, PartsAreCapturedInNumberOrderAndPlaceholdersInQuotesAreNotVariables) {
    std::vector<std::string> parts;
    EXPECT_TRUE(match_template("X '%2' AND '%1'", "X 'a' AND 'b' AND 'c'", parts));
    EXPECT_EQ(parts, (std::vector<std::string>{"b' AND 'c", "a"}));
    EXPECT_FALSE(match_template("DROP DIRECTORY %1", "DROP DIRECTORY ", parts));
    EXPECT_EQ(placeholders("BEGIN X(:fname,:Ftype); Y('C:\\a:b', 'hh24:mi'); END;"),
              (std::vector<std::string>{":FNAME", ":FTYPE"}));
}

}  // namespace
}  // namespace ocisim
