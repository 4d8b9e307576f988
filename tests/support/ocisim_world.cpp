#include "support/ocisim_world.h"

#include "oracle/client/session_holder.h"
#include "support/process.h"

namespace test {

ocisim_world_t::ocisim_world_t(const std::vector<ocisim::InstanceSetup>& instances)
{
    set_world(ocisim::make_world(instances));
    set_process_env(L"OCISIM_SCENARIO", folder_.file(L"scenario.txt"));
    set_process_env(L"OCISIM_JOURNAL", folder_.file(L"journal.txt"));
}

ocisim_world_t::~ocisim_world_t()
{
    set_process_env(L"OCISIM_SCENARIO", L"");
    set_process_env(L"OCISIM_JOURNAL", L"");
}

void ocisim_world_t::set_world(const ocisim::World& world) const
{
    ocisim::write_scenario(folder_.file_utf8("scenario.txt"), world);
}

std::vector<std::string> ocisim_world_t::journal() const
{
    return ocisim::read_journal(folder_.file_utf8("journal.txt"));
}

std::vector<std::string> ocisim_world_t::take_journal()
{
    const std::vector<std::string> lines = journal();
    const size_t from = taken_ < lines.size() ? taken_ : lines.size();
    taken_ = lines.size();
    return std::vector<std::string>(lines.begin() + static_cast<std::ptrdiff_t>(from), lines.end());
}

std::vector<std::string> ocisim_world_t::take_statements()
{
    std::vector<std::string> statements;
    for (const std::string& line : take_journal())
        if (line.compare(0, 4, "sql ") == 0 || line.compare(0, 5, "bind ") == 0)
            statements.push_back(line);
    return statements;
}

std::shared_ptr<specific::oracle::COracleSession> sim_session(const std::wstring& sid)
{
    return specific::oracle::COracleSessionHolder(sid, L"C:\\h", {}, false).GetSession();
}

} // namespace test
