#pragma once

#include <string>
#include <vector>

#include "support/ocisim_world.h"
#include "support/registry_sandbox.h"

namespace inventory_test {

// A machine with Oracle on it, as far as the library can see: one Oracle home
// and its services in a sandboxed registry, and the simulated client's
// scenario with an instance for each service.
class CSimMachine {
public:
    CSimMachine();

    // An instance served by OracleService<SID> (or OracleASMService<SID>) of
    // the home, with `properties` as its scenario lines ("status = DOWN\n").
    void AddInstance(const std::string& sid, const std::string& properties, bool isAsm = false);

    std::vector<std::string> Journal() const { return world_.journal(); }
    // Whether the simulator was asked to attach to `sid`.
    bool Contacted(const std::string& sid) const;

    const std::wstring& HomePath() const { return homePath_; }
    test::registry_sandbox_t& Registry() { return registry_; }

private:
    test::registry_sandbox_t registry_;
    test::ocisim_world_t world_;
    std::wstring homePath_;
    std::string scenario_;
};

} // namespace inventory_test
