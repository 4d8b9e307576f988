#include "sim_world.h"

#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace oracle_client_test {

void set_process_env(const std::wstring& name, const std::wstring& value)
{
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    _wputenv((name + L"=" + value).c_str());
}

CSimWorld::CSimWorld(const std::string& scenario) : journal_(folder_.file(L"journal.txt"))
{
    const std::wstring path = folder_.file(L"scenario.txt");
    std::ofstream out(path.c_str(), std::ios::binary);
    out << scenario;
    if (!out)
        throw std::runtime_error("cannot write the scenario");
    set_process_env(L"OCISIM_SCENARIO", path);
    set_process_env(L"OCISIM_JOURNAL", journal_);
}

CSimWorld::~CSimWorld()
{
    set_process_env(L"OCISIM_SCENARIO", L"");
    set_process_env(L"OCISIM_JOURNAL", L"");
}

std::vector<std::string> CSimWorld::Journal() const
{
    std::vector<std::string> lines;
    std::ifstream in(journal_.c_str(), std::ios::binary);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

std::vector<std::string> CSimWorld::JournalAfter(const std::string& start) const
{
    const std::vector<std::string> all = Journal();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].compare(0, start.size(), start) == 0)
            return std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(i) + 1, all.end());
    throw std::runtime_error("no journal line " + start);
}

std::vector<std::string> CSimWorld::JournalStarting(const std::vector<std::string>& prefixes) const
{
    std::vector<std::string> found;
    for (const std::string& line : Journal())
        for (const std::string& prefix : prefixes)
            if (line.compare(0, prefix.size(), prefix) == 0) {
                found.push_back(line);
                break;
            }
    return found;
}

} // namespace oracle_client_test
