#include "scenario_builder.h"

#include <filesystem>
#include <fstream>

namespace ocisim {
namespace {

std::string join(const std::string& folder, const std::string& name) {
    if (!folder.empty() && (folder.back() == '\\' || folder.back() == '/')) return folder + name;
    return folder + "\\" + name;
}

}  // namespace

World make_world(const std::vector<InstanceSetup>& instances) {
    World world;
    for (const InstanceSetup& setup : instances) add_instance(world, setup);
    return world;
}

Instance& add_instance(World& world, const InstanceSetup& setup) {
    Instance& instance = world.add_instance(setup.sid);
    for (const auto& [key, value] : setup.properties) instance.set(key, value);
    for (const auto& [kind, fields] : setup.records) instance.add(kind, fields);
    return instance;
}

void write_scenario(const std::string& path, const World& world) {
    save_world(path, world);
    std::error_code ignored;
    std::filesystem::remove(std::filesystem::u8path(state_path_for(path)), ignored);
}

World read_state(const std::string& scenarioPath) {
    return load_state_or_scenario(scenarioPath, state_path_for(scenarioPath));
}

void write_state(const std::string& scenarioPath, const World& world) {
    save_world(state_path_for(scenarioPath), world);
}

Instance& add_typical_database(World& world, const std::string& sid, const std::string& folder) {
    Instance& db = world.add_instance(sid);
    const std::string arch = join(folder, "arch");
    db.set("archive_dest", arch);
    db.add("controlfile", {{"name", join(folder, "CONTROL01.CTL")}});
    db.add("controlfile", {{"name", join(folder, "CONTROL02.CTL")}});
    db.add("datafile", {{"name", join(folder, "SYSTEM01.DBF")}});
    db.add("datafile", {{"name", join(folder, "SYSAUX01.DBF")}});
    db.add("datafile", {{"name", join(folder, "USERS01.DBF")}, {"bytes", "5242880"}});
    db.add("redolog", {{"group", "1"}, {"member", join(folder, "REDO01.LOG")}});
    db.add("redolog", {{"group", "2"}, {"member", join(folder, "REDO02.LOG")}});
    db.add("tempfile", {{"name", join(folder, "TEMP01.DBF")}});
    db.add("user", {{"name", "system"}, {"password", "manager"}});
    for (const char* name : {"ARC0000000001_0001.ARC", "ARC0000000002_0001.ARC", "ARC0000000003_0001.ARC"})
        db.add("archived_log", {{"name", join(arch, name)}});
    return db;
}

void create_log_files(const Instance& instance) {
    for (const Record* log : instance.records("archived_log")) {
        const std::string& name = log->get("name");
        if (name.empty() || name[0] == '+' || log->get("status") == "D") continue;
        const auto path = std::filesystem::u8path(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << std::string(static_cast<std::size_t>(log->number("blocks") * log->number("block_size")), 'R');
    }
}

}  // namespace ocisim
