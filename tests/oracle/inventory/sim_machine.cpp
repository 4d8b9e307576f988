#include "sim_machine.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace inventory_test {

void SetProcessEnv(const std::wstring& name, const std::wstring& value)
{
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    _wputenv((name + L"=" + value).c_str());
}

CSimMachine::CSimMachine() : homePath_(folder_.file(L"home"))
{
    const std::wstring key = L"SOFTWARE\\ORACLE\\KEY_SimHome1";
    registry_.set_string(key, L"ORACLE_HOME", homePath_);
    registry_.set_string(key, L"ORACLE_HOME_NAME", L"SimHome1");
    WriteScenario();
    SetProcessEnv(L"OCISIM_SCENARIO", folder_.file(L"scenario.txt"));
    SetProcessEnv(L"OCISIM_JOURNAL", folder_.file(L"journal.txt"));
}

CSimMachine::~CSimMachine()
{
    SetProcessEnv(L"OCISIM_SCENARIO", L"");
    SetProcessEnv(L"OCISIM_JOURNAL", L"");
}

void CSimMachine::AddInstance(const std::string& sid, const std::string& properties, bool isAsm)
{
    const std::wstring wideSid(sid.begin(), sid.end());
    const std::wstring service =
        std::wstring(isAsm ? L"OracleASMService" : L"OracleService") + wideSid;
    registry_.set_string(L"SYSTEM\\CurrentControlSet\\Services\\" + service, L"ImagePath",
                         homePath_ + L"\\bin\\oracle.exe " + wideSid, REG_EXPAND_SZ);
    scenario_ += "[instance " + sid + "]\n" + properties + "\n";
    WriteScenario();
}

void CSimMachine::WriteScenario() const
{
    std::ofstream out(folder_.file(L"scenario.txt").c_str(), std::ios::binary | std::ios::trunc);
    out << scenario_;
    if (!out)
        throw std::runtime_error("cannot write the scenario");
    DeleteFileW(folder_.file(L"scenario.txt.state").c_str());
}

std::vector<std::string> CSimMachine::Journal() const
{
    std::vector<std::string> lines;
    std::ifstream in(folder_.file(L"journal.txt").c_str(), std::ios::binary);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

bool CSimMachine::Contacted(const std::string& sid) const
{
    const std::vector<std::string> lines = Journal();
    return std::find(lines.begin(), lines.end(), "attach sid=" + sid) != lines.end();
}

} // namespace inventory_test
