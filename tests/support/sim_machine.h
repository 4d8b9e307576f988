#pragma once

#include <string>
#include <vector>

#include "support/ocisim_world.h"
#include "support/registry_sandbox.h"

namespace test {

// A machine with Oracle on it, as far as the library can see: one Oracle home
// and its services in a sandboxed registry, and the simulated client's world
// with an instance for each service.
class sim_machine_t {
public:
    sim_machine_t();

    // An instance served by OracleService<SID> (or OracleASMService<SID>) of the
    // home at `home_path` (by default the first home).
    void add_instance(const ocisim::InstanceSetup& setup, bool is_asm = false,
                      const std::wstring& home_path = std::wstring());
    // Another home in the registry, under SOFTWARE\ORACLE\KEY_<name>.
    void add_home(const std::wstring& name, const std::wstring& path);

    // Whether the simulator was asked to attach to `sid`.
    bool contacted(const std::string& sid) const;

    const std::wstring& home_path() const { return home_path_; }
    registry_sandbox_t& registry() { return registry_; }
    ocisim_world_t& world() { return world_; }

private:
    registry_sandbox_t registry_;
    ocisim_world_t world_;
    ocisim::World instances_;
    std::wstring home_path_;
};

} // namespace test
