#include "ocisim/scenario_builder.h"
#include "support/temp_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace ocisim {
namespace {

World parse(const std::string& text) {
    std::istringstream in(text);
    return parse_world(in, "scenario.txt");
}

TEST(Scenario, UnsetPropertiesGiveDefaultsNamesFollowTheSidAndFieldsSplitAtTheFirstEquals) {
    const World world = parse("[instance ORCL]\nlog_mode = NOARCHIVELOG\n"
                              "parameter = name=local_listener | value=(ADDRESS=(HOST=db)(PORT=1521))\n"
                              "[instance ORCL2]\nname = orcl\n");
    const Instance* orcl = world.find("orcl");
    ASSERT_NE(orcl, nullptr);
    EXPECT_EQ(orcl->get("log_mode"), "NOARCHIVELOG");
    EXPECT_EQ(orcl->get("status"), "OPEN");
    EXPECT_EQ(orcl->get("unique_name"), "ORCL");
    EXPECT_EQ(orcl->records("parameter").at(0)->get("value"), "(ADDRESS=(HOST=db)(PORT=1521))");
    EXPECT_EQ(world.find("ORCL2")->get("unique_name"), "orcl");
}

TEST(Scenario, ArchivedLogsListedByNameFormAConsistentChain) {
    const World world = parse(
        "[instance ORCL]\n"
        "archived_log = name=C:\\arch\\1.arc | first_change=5000 | first_time=2024/02/28 23:30:00\n"
        "archived_log = name=C:\\arch\\2.arc\n");
    const auto logs = world.find("ORCL")->records("archived_log");
    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[1]->get("recid"), "2");
    EXPECT_EQ(logs[1]->get("sequence"), "2");
    EXPECT_EQ(logs[1]->number("stamp"), logs[0]->number("stamp") + 1);
    EXPECT_EQ(logs[1]->get("first_change"), logs[0]->get("next_change"));
    EXPECT_EQ(logs[0]->get("next_time"), "2024/02/29 00:30:00");
    EXPECT_EQ(logs[1]->get("first_time"), "2024/02/29 00:30:00");
    EXPECT_EQ(logs[1]->get("next_time"), "2024/02/29 01:30:00");
}

TEST(Scenario, MistakesAreReportedWithTheirLine) {
    const std::pair<const char*, const char*> cases[] = {
        {"[instance ORCL]\n\nlogmode = ARCHIVELOG\n", "scenario.txt:3: unknown instance property 'logmode'"},
        {"[instance ORCL]\ndatafile = bytes=10\n", "scenario.txt:2: datafile needs a value for 'name'"},
        {"[instance ORCL]\ndatafile = name=a | size=10\n", "scenario.txt:2: datafile has no field 'size'"},
        {"[instance ORCL]\ncurrent_scn = lots\n",
         "scenario.txt:2: instance property 'current_scn' is not an integer: 'lots'"},
        {"[instance ORCL]\narchived_log = name=a | first_time=2024/04/31 00:00:00\n",
         "scenario.txt:2: archived_log field 'first_time' is not 'yyyy/mm/dd hh:mi:ss': '2024/04/31 00:00:00'"},
        {"status = OPEN\n", "scenario.txt:1: 'key = value' before the first [instance SID]"},
        {"[instance ORCL]\n[instance orcl]\n", "scenario.txt:2: instance 'orcl' is defined twice"},
    };
    for (const auto& [text, message] : cases) {
        try {
            parse(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const ScenarioError& e) {
            EXPECT_STREQ(e.what(), message);
        }
    }
}

TEST(Scenario, WrittenWorldReadsBackTheSame) {
    World world;
    Instance& db = add_typical_database(world, "ORCL", "C:\\oradata\\ORCL");
    db.set("status", "OPEN MIGRATE");
    db.add("fault", {{"kind", "error"}, {"text", "BEGIN BACKUP"}, {"code", "1652"}, {"times", "2"}});
    world.add_instance("+ASM").set("asm", "yes");

    std::ostringstream first;
    write_world(first, world);
    std::istringstream in(first.str());
    std::ostringstream second;
    write_world(second, parse_world(in, "state"));
    EXPECT_EQ(second.str(), first.str());
}

TEST(Scenario, StateFileWinsOverTheScenarioUntilANewScenarioIsWritten) {
    const test::temp_folder_t dir;
    const std::string scenario = dir.file_utf8("scenario.txt");
    World world;
    world.add_instance("ORCL");
    write_scenario(scenario, world);
    World changed = read_state(scenario);
    changed.find("ORCL")->set("status", "MOUNTED");
    write_state(scenario, changed);
    EXPECT_EQ(read_state(scenario).find("ORCL")->get("status"), "MOUNTED");

    write_scenario(scenario, world);
    EXPECT_FALSE(std::filesystem::exists(state_path_for(scenario)));
    EXPECT_EQ(read_state(scenario).find("ORCL")->get("status"), "OPEN");
}

TEST(Scenario, LogFilesAreCreatedWithTheirListedSizeUnlessDeletedOrOnAsm) {
    const test::temp_folder_t dir;
    World world;
    Instance& db = add_typical_database(world, "ORCL", dir.file_utf8("db"));
    db.add("archived_log", {{"name", "+FRA/ORCL/ARCH/4.ARC"}});
    db.records("archived_log")[0]->set("status", "D");
    create_log_files(db);
    const auto logs = db.records("archived_log");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::u8path(logs[0]->get("name"))));
    EXPECT_EQ(std::filesystem::file_size(std::filesystem::u8path(logs[1]->get("name"))), 1024u);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::u8path(logs[3]->get("name"))));
}

TEST(Journal, ControlCharactersAreEscapedAndBackslashesKept) {
    EXPECT_EQ(journal_escape("BEGIN\n DBMS_X('C:\\dir');\t END;\r"), "BEGIN\\n DBMS_X('C:\\dir');\\t END;\\r");
}

}  // namespace
}  // namespace ocisim
