// For tests that run the library against the simulated client: write a scenario,
// read back the state a run left, and read the journal.
//
//   ocisim::World world;
//   ocisim::Instance& orcl = ocisim::add_typical_database(world, "ORCL", dir);
//   orcl.set("log_mode", "NOARCHIVELOG");
//   orcl.add("fault", {{"kind", "hang"}, {"at", "status"}});
//   ocisim::write_scenario(scenarioPath, world);   // also forgets an old state file
//   ... set OCISIM_SCENARIO and OCISIM_JOURNAL, run the library ...
//   EXPECT_EQ(ocisim::read_state(scenarioPath).find("ORCL")->get("status"), "DOWN");
//   EXPECT_THAT(ocisim::read_journal(journalPath), Contains("shutdown sid=ORCL mode=FINAL"));
#pragma once

#include "ocisim/journal.h"
#include "ocisim/world.h"

#include <string>
#include <utility>
#include <vector>

namespace ocisim {

// An instance written in one expression: its properties and its records, in order.
//   ocisim::make_world({{"ORCL", {{"status", "DOWN"}}, {{"fault", {{"kind", "hang"}, {"at", "status"}}}}}})
struct InstanceSetup {
    InstanceSetup(std::string sid_, Fields properties_ = {}, std::vector<std::pair<std::string, Fields>> records_ = {})
        : sid(std::move(sid_)), properties(std::move(properties_)), records(std::move(records_)) {}

    std::string sid;
    Fields properties;
    std::vector<std::pair<std::string, Fields>> records;
};
World make_world(const std::vector<InstanceSetup>& instances);
// Adds one instance of the shape above to `world`.
Instance& add_instance(World& world, const InstanceSetup& setup);

// Writes `world` as the scenario at `path` and removes the state file a previous run
// left beside it, so the next attach starts from this scenario.
void write_scenario(const std::string& path, const World& world);

// The world as the last run left it: its state file, or the scenario when nothing changed.
World read_state(const std::string& scenarioPath);

// Replaces the state a run left, e.g. to add a fault between a prepare and a restore.
void write_state(const std::string& scenarioPath, const World& world);

// An open ARCHIVELOG database whose files live in `folder` (a Windows path): two
// control files, three data files, two redo log groups, a temp file, the user
// "system"/"manager" without SYSDBA, and three archived logs in folder\arch, which is
// also the archive destination. The log files themselves are made by create_log_files.
Instance& add_typical_database(World& world, const std::string& sid, const std::string& folder);

// Creates each listed, undeleted archived log of `instance` that isn't on ASM, with
// the size V$ARCHIVED_LOG gives it, and the folders they need.
void create_log_files(const Instance& instance);

}  // namespace ocisim
