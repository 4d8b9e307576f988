#include "sim_machine.h"

#include <algorithm>

namespace inventory_test {

CSimMachine::CSimMachine() : homePath_(world_.folder().file(L"home"))
{
    const std::wstring key = L"SOFTWARE\\ORACLE\\KEY_SimHome1";
    registry_.set_string(key, L"ORACLE_HOME", homePath_);
    registry_.set_string(key, L"ORACLE_HOME_NAME", L"SimHome1");
}

void CSimMachine::AddInstance(const std::string& sid, const std::string& properties, bool isAsm)
{
    const std::wstring wideSid(sid.begin(), sid.end());
    const std::wstring service =
        std::wstring(isAsm ? L"OracleASMService" : L"OracleService") + wideSid;
    registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\" + service, L"ImagePath",
                         homePath_ + L"\\bin\\oracle.exe " + wideSid, REG_EXPAND_SZ);
    scenario_ += "[instance " + sid + "]\n" + properties + "\n";
    world_.set_scenario(scenario_);
}

bool CSimMachine::Contacted(const std::string& sid) const
{
    const std::vector<std::string> lines = Journal();
    return std::find(lines.begin(), lines.end(), "attach sid=" + sid) != lines.end();
}

} // namespace inventory_test
