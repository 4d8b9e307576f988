#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/logging/log.h"

namespace win {
class win_log_file_t;
}

namespace logging {

// When the live log file is rotated and how many archives are kept. Read from
// the registry once per process.
struct log_limits_t {
    // Bytes at which the live file is rotated; 0 means never.
    uint64_t max_size = 15728640;
    // Highest age number an archive may bear.
    uint32_t max_ages = 10;
};

// Reads the limits now. The size and the count are one unit: unless both read
// well, both keep their defaults.
log_limits_t read_log_limits();

// Starts the process-wide log: a file at `path` (narrow, ANSI), or standard
// output when `path` is empty. Never raises; when no receiver can be made the
// library goes on without a log. The start-up messages go to the channel cli.
void setup_log(const std::string& path, bool quiet, bool check_size);
// The `quiet` of the last setup_log; nothing else depends on it.
bool log_quiet();

// Attaches a receiver for the first of `paths` (standard output when there is
// none) and collects what is to be logged once it stands. True when attached.
bool init_log(const std::vector<std::string>& paths, bool check_size,
              std::vector<std::string>& messages);
// A receiver on a file, rotated at once if already over the limit; empty on failure.
std::shared_ptr<receiver::log_file_t> init_log_file(const std::vector<std::string>& paths,
                                                    std::vector<std::string>& messages);
std::shared_ptr<receiver::log_file_t> init_stdout_log(std::vector<std::string>& messages);

// The size test: rotates the live file into a gz archive and ages the older
// archives when the file has reached the limit.
void check_log_size(const std::shared_ptr<receiver::log_file_t>& receiver);
// The same test against given limits instead of those of the registry.
void check_log_size(const std::shared_ptr<receiver::log_file_t>& receiver,
                    const log_limits_t& limits);

// `name` in the configured LogDirectory, or in the common application data
// folder under "Brelm\Backup".
std::wstring default_log_path(const std::wstring& name);
// The first path whose folder exists or can be made; when none can, the first
// path moved out of a LogDirectory that cannot be written. Raises when no
// folder can be had at all.
std::string select_log_path(const std::vector<std::string>& paths);
// True, with the new path, when `path` lies at or below LogDirectory.
bool redirect_log_path(const std::string& path, std::string& redirected);
// Opens `path`, or the first numbered name that no other writer holds.
std::shared_ptr<win::win_log_file_t> open_unlocked_log(const std::string& path,
                                                       std::string& used_path);
// "agent.log" -> "agent.<number>.log"; the suffix keeps its case.
std::string numbered_log_name(const std::string& path, uint32_t number);
// Shifts the aged copies of `path` up by one age, deleting the one at `limit`;
// raises, and moves nothing, when one of them is held open.
void age_file(const std::string& path, const std::string& extension, uint32_t limit);
// "agent.log.gz" with ".log.gz" and age 3 -> "agent.3.log.gz"; age 0 is `path`.
std::string aged_file_name(const std::string& path, const std::string& extension, uint32_t age);

} // namespace logging
