#pragma once

#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace test {

// A scenario for the simulated Oracle client in a fresh folder, named to it
// through the environment for the life of the object, and the journal it writes.
class ocisim_world_t {
public:
    explicit ocisim_world_t(const std::string& scenario = std::string());
    ~ocisim_world_t();
    ocisim_world_t(const ocisim_world_t&) = delete;
    ocisim_world_t& operator=(const ocisim_world_t&) = delete;

    // Replaces the scenario; what the simulator saved of the old one is dropped.
    void set_scenario(const std::string& scenario) const;
    const temp_folder_t& folder() const { return folder_; }

    std::vector<std::string> journal() const;
    // The journal lines after the first one that begins with `line`.
    std::vector<std::string> journal_after(const std::string& line) const;
    // The journal lines that begin with one of `prefixes`, in journal order.
    std::vector<std::string> journal_starting(const std::vector<std::string>& prefixes) const;

private:
    temp_folder_t folder_;
};

// Sets a variable for this process and the C runtime's copy.
void set_process_env(const std::wstring& name, const std::wstring& value);

} // namespace test
