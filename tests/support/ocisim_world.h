#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ocisim/scenario_builder.h"
#include "support/temp_folder.h"

namespace specific::oracle {
class COracleSession;
}

namespace test {

// A world of the simulated Oracle client in a fresh folder, named to it through
// the environment for the life of the object, and the journal it writes.
class ocisim_world_t {
public:
    explicit ocisim_world_t(const std::vector<ocisim::InstanceSetup>& instances = {});
    ~ocisim_world_t();
    ocisim_world_t(const ocisim_world_t&) = delete;
    ocisim_world_t& operator=(const ocisim_world_t&) = delete;

    // Replaces the world; what the simulator saved of the old one is dropped.
    void set_world(const ocisim::World& world) const;
    const temp_folder_t& folder() const { return folder_; }

    // The whole journal so far.
    std::vector<std::string> journal() const;
    // The journal lines written since the last take, for a test to assert whole.
    std::vector<std::string> take_journal();
    // The statements (sql and bind lines) among the lines since the last take.
    std::vector<std::string> take_statements();

private:
    temp_folder_t folder_;
    size_t taken_ = 0;
};

// A session by operating-system authentication to `sid` of the current world.
std::shared_ptr<specific::oracle::COracleSession> sim_session(const std::wstring& sid = L"ORCL");

} // namespace test
