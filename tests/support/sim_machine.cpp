#include "support/sim_machine.h"

#include <algorithm>

namespace test {

sim_machine_t::sim_machine_t() : home_path_(world_.folder().file(L"home"))
{
    const std::wstring key = L"SOFTWARE\\ORACLE\\KEY_SimHome1";
    registry_.set_string(key, L"ORACLE_HOME", home_path_);
    registry_.set_string(key, L"ORACLE_HOME_NAME", L"SimHome1");
}

void sim_machine_t::add_home(const std::wstring& name, const std::wstring& path)
{
    const std::wstring key = L"SOFTWARE\\ORACLE\\KEY_" + name;
    registry_.set_string(key, L"ORACLE_HOME", path);
    registry_.set_string(key, L"ORACLE_HOME_NAME", name);
}

void sim_machine_t::add_instance(const ocisim::InstanceSetup& setup, bool is_asm,
                                 const std::wstring& home_path)
{
    const std::wstring& home = home_path.empty() ? home_path_ : home_path;
    const std::wstring sid(setup.sid.begin(), setup.sid.end());
    const std::wstring service = std::wstring(is_asm ? L"OracleASMService" : L"OracleService") + sid;
    registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\" + service, L"ImagePath",
                         home + L"\\bin\\oracle.exe " + sid, REG_EXPAND_SZ);
    ocisim::add_instance(instances_, setup);
    world_.set_world(instances_);
}

bool sim_machine_t::contacted(const std::string& sid) const
{
    const std::vector<std::string> lines = world_.journal();
    return std::find(lines.begin(), lines.end(), "attach sid=" + sid) != lines.end();
}

} // namespace test
