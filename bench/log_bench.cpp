// Measures the costs of the log, through the process-wide logger into a file:
//   1. lines per second from one thread, and from two threads at once (the
//      size test every 1000 messages included, as in the library);
//   2. the time to rotate a live log of 15 MiB (compression at level 9 into
//      the gz archive, aging and truncation).
// The 15 MiB sample is left in the work folder, so that bench/run.sh can time
// gzip -9 on the same bytes and print the ratio beside these figures.
//
// Usage: bench_log_bench.exe [work folder]   (default: a folder under %TEMP%,
// removed at the end; a given folder is kept).

#include "common/logging/file_receivers.h"
#include "common/logging/log.h"
#include "common/logging/log_files.h"
#include "common/strings/strings.h"
#include "common/win/file.h"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kLinesPerRun = 100000;
constexpr uint64_t kRotationSize = 15728640;
constexpr int kRotationRuns = 3;

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start)
{
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

// Lines of the kind the Oracle code writes, with numbers that change from line
// to line so that the sample does not compress better than a real log.
void log_lines(int count, int seed)
{
    for (int i = 0; i < count; ++i) {
        const uint32_t n = static_cast<uint32_t>(i) * 2654435761u + static_cast<uint32_t>(seed);
        switch (i % 4) {
        case 0:
            logging::oralib().info("Checking instance ORCL%1, sequence %2",
                                   util::int_to_str(n % 7), util::int_to_str(i));
            break;
        case 1:
            logging::oralib().detail("Query [SELECT SEQUENCE#, FIRST_CHANGE# FROM V$ARCHIVED_LOG] "
                                     "returned %1 rows.",
                                     util::int_to_str(n % 5000));
            break;
        case 2:
            logging::oralib().info("Archived log C:\\oracle\\arch\\ARC%1_1_%2.DBF, SCN %3",
                                   util::int_to_str(i), util::int_to_str(n % 1000),
                                   util::int_to_str(static_cast<uint64_t>(n) * 977u));
            break;
        default:
            logging::oralib().warning("Instance ORCL%1 is not started.", util::int_to_str(n % 3));
            break;
        }
    }
}

double lines_per_second(const std::string& path, int threads)
{
    logging::setup_log(path, true, true);
    const int per_thread = kLinesPerRun / threads;
    const auto start = clock_type::now();
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back(log_lines, per_thread, t);
    for (auto& worker : workers)
        worker.join();
    const double elapsed = seconds_since(start);
    logging::get_log()->set_receiver(nullptr);
    return per_thread * threads / elapsed;
}

// A live log of exactly kRotationSize bytes, written through the logger.
void make_sample(const std::string& path)
{
    logging::setup_log(path, true, false);
    {
        const auto receiver = logging::get_log()->receiver();
        int seed = 0;
        while (receiver->size() < kRotationSize)
            log_lines(1000, ++seed);
    }
    logging::get_log()->set_receiver(nullptr);
    win::open_or_create_file(path)->reset_size(kRotationSize);
}

// The best of a few rotations, each of a fresh copy of the sample.
double rotation_seconds(const std::string& sample, const std::string& live_path)
{
    logging::log_limits_t limits;
    limits.max_size = kRotationSize;
    limits.max_ages = 10;
    double best = 0;
    for (int run = 0; run < kRotationRuns; ++run) {
        CopyFileA(sample.c_str(), live_path.c_str(), FALSE);
        auto receiver = std::make_shared<win::win_log_file_t>(live_path);
        const auto start = clock_type::now();
        logging::check_log_size(receiver, limits);
        const double elapsed = seconds_since(start);
        if (receiver->size() != 0)
            throw std::runtime_error("the rotation did not empty the live file");
        if (run == 0 || elapsed < best)
            best = elapsed;
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    const bool own_folder = argc < 2;
    const std::wstring folder = own_folder ? win::get_temp_path() + L"orasnap-log-bench-" +
                                                 std::to_wstring(GetCurrentProcessId())
                                           : util::ansi_to_wide(argv[1]);
    std::filesystem::create_directories(folder);
    const std::string work = util::wide_to_ansi(folder);

    try {
        const double one = lines_per_second(win::join_path(work, "one_thread.log"), 1);
        const double two = lines_per_second(win::join_path(work, "two_threads.log"), 2);

        const std::string sample = win::join_path(work, "sample.log");
        const std::string live = win::join_path(work, "rotate.log");
        make_sample(sample);
        const double rotation = rotation_seconds(sample, live);

        std::printf("log lines per second, 1 thread : %.0f\n", one);
        std::printf("log lines per second, 2 threads: %.0f\n", two);
        std::printf("rotation of a 15 MiB log       : %.3f s (best of %d)\n", rotation,
                    kRotationRuns);
        std::printf("archive size                   : %llu bytes\n",
                    static_cast<unsigned long long>(
                        win::file_size(win::join_path(work, "rotate.log.gz"))));
        std::printf("rotation_seconds=%.6f\n", rotation);
        std::printf("sample=%s\n", sample.c_str());
        if (own_folder)
            std::printf("gzip -9 comparison: run bench/run.sh, which times gzip on the sample\n");
    } catch (const std::exception& e) {
        std::printf("benchmark failed: %s\n", e.what());
        return 1;
    }

    if (own_folder) {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    return 0;
}
