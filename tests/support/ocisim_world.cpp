#include "support/ocisim_world.h"

#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace test {

void set_process_env(const std::wstring& name, const std::wstring& value)
{
    SetEnvironmentVariableW(name.c_str(), value.empty() ? nullptr : value.c_str());
    _wputenv((name + L"=" + value).c_str());
}

ocisim_world_t::ocisim_world_t(const std::string& scenario)
{
    set_scenario(scenario);
    set_process_env(L"OCISIM_SCENARIO", folder_.file(L"scenario.txt"));
    set_process_env(L"OCISIM_JOURNAL", folder_.file(L"journal.txt"));
}

ocisim_world_t::~ocisim_world_t()
{
    set_process_env(L"OCISIM_SCENARIO", L"");
    set_process_env(L"OCISIM_JOURNAL", L"");
}

void ocisim_world_t::set_scenario(const std::string& scenario) const
{
    std::ofstream out(folder_.file(L"scenario.txt").c_str(), std::ios::binary | std::ios::trunc);
    out << scenario;
    if (!out)
        throw std::runtime_error("cannot write the scenario");
    DeleteFileW(folder_.file(L"scenario.txt.state").c_str());
}

std::vector<std::string> ocisim_world_t::journal() const
{
    std::vector<std::string> lines;
    std::ifstream in(folder_.file(L"journal.txt").c_str(), std::ios::binary);
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

std::vector<std::string> ocisim_world_t::journal_after(const std::string& start) const
{
    const std::vector<std::string> all = journal();
    for (size_t i = 0; i < all.size(); ++i)
        if (all[i].compare(0, start.size(), start) == 0)
            return std::vector<std::string>(all.begin() + static_cast<std::ptrdiff_t>(i) + 1, all.end());
    throw std::runtime_error("no journal line " + start);
}

std::vector<std::string> ocisim_world_t::journal_starting(const std::vector<std::string>& prefixes) const
{
    std::vector<std::string> found;
    for (const std::string& line : journal())
        for (const std::string& prefix : prefixes)
            if (line.compare(0, prefix.size(), prefix) == 0) {
                found.push_back(line);
                break;
            }
    return found;
}

} // namespace test
