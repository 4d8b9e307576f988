#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/ocisim_world.h"
#include "support/temp_folder.h"

namespace test {

// What one run of orasnap.exe left: its exit code and its two output streams.
struct cli_run_t {
    DWORD exit_code = 0;
    std::string out;
    std::string err;
};

// Runs out/bin/orasnap.exe with `args`, `input` on its standard input (a file, so
// never a console), and waits for it.
cli_run_t run_cli(const std::vector<std::wstring>& args, const std::string& input = std::string());

// A machine for orasnap.exe: a child process does not see the registry sandbox of
// the test process, so the keys go into the Wine prefix's own HKEY_LOCAL_MACHINE
// (which no other test reads) and are removed again, also before they are written,
// in case an interrupted run left them. One Oracle home with the open ARCHIVELOG
// database ORCL of the simulated client, its archived logs on disk, a SYSDBA user
// with `password`, and the agent's configuration with its logs under folder().
class cli_machine_t {
public:
    explicit cli_machine_t(const std::string& password);
    ~cli_machine_t();
    cli_machine_t(const cli_machine_t&) = delete;
    cli_machine_t& operator=(const cli_machine_t&) = delete;

    const temp_folder_t& folder() const { return root_; }
    std::wstring home() const { return root_.file(L"home"); }
    std::wstring logs_folder() const { return root_.file(L"logs") + L"\\"; }
    ocisim_world_t& world() { return world_; }

private:
    temp_folder_t root_;
    ocisim_world_t world_;
};

} // namespace test
