#pragma once

#include <string>
#include <vector>

#include "support/registry_sandbox.h"
#include "support/temp_folder.h"

namespace inventory_test {

// A machine with Oracle on it, as far as the library can see: one Oracle home
// and its services in a sandboxed registry, and the simulated client's
// scenario with an instance for each service. The simulator is pointed at the
// scenario through the environment for the life of the object.
class CSimMachine {
public:
    CSimMachine();
    ~CSimMachine();
    CSimMachine(const CSimMachine&) = delete;
    CSimMachine& operator=(const CSimMachine&) = delete;

    // An instance served by OracleService<SID> (or OracleASMService<SID>) of
    // the home, with `properties` as its scenario lines ("status = DOWN\n").
    void AddInstance(const std::string& sid, const std::string& properties, bool isAsm = false);

    std::vector<std::string> Journal() const;
    // Whether the simulator was asked to attach to `sid`.
    bool Contacted(const std::string& sid) const;

    const std::wstring& HomePath() const { return homePath_; }
    test::registry_sandbox_t& Registry() { return registry_; }

private:
    void WriteScenario() const;

    test::registry_sandbox_t registry_;
    test::temp_folder_t folder_;
    std::wstring homePath_;
    std::string scenario_;
};

// Sets a variable in the process environment and in the C runtime's copy.
void SetProcessEnv(const std::wstring& name, const std::wstring& value);

} // namespace inventory_test
