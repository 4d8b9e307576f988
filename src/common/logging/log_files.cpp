#include "common/logging/log_files.h"

#include <atomic>
#include <exception>

#include <shlobj.h>

#include "common/exc/exc.h"
#include "common/logging/file_receivers.h"
#include "common/logging/zip_writer.h"
#include "common/strings/strings.h"
#include "common/win/file.h"
#include "common/win/registry.h"

namespace logging {

namespace {

// Names are tried with the numbers 0 to 999 before the log gives up.
constexpr uint32_t max_log_names = 1000;
constexpr uint32_t max_log_ages = 1000;

std::atomic<bool> g_quiet{false};

std::shared_ptr<win::win_reg_key_t> open_settings_key()
{
    return win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Brelm\\Brelm Safeguard");
}

// The LogDirectory value; false when it cannot be read, whatever the reason,
// so that a damaged setting falls back to the common folder.
bool read_log_directory(std::wstring& folder)
{
    try {
        const auto key = open_settings_key();
        return key && key->get_string(L"LogDirectory", folder);
    } catch (const std::exception&) {
        return false;
    }
}

// "<common application data>\Brelm\Backup\", or empty when the system does
// not name that folder.
std::wstring common_log_folder()
{
    wchar_t folder[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, folder)))
        return std::wstring();
    return std::wstring(folder) + L"\\Brelm\\Backup\\";
}

const log_limits_t& cached_log_limits()
{
    static const log_limits_t limits = read_log_limits();
    return limits;
}

// Whether every part of `folder` begins `path`, without regard to case.
bool lies_at_or_below(const std::string& path, const std::string& folder)
{
    std::vector<std::string> path_parts, folder_parts;
    win::split_path_parts(path, path_parts);
    win::split_path_parts(folder, folder_parts);
    if (folder_parts.empty() || folder_parts.size() > path_parts.size())
        return false;
    for (size_t i = 0; i < folder_parts.size(); ++i) {
        if (!util::iequals(path_parts[i], folder_parts[i]))
            return false;
    }
    return true;
}

} // namespace

log_limits_t read_log_limits()
{
    log_limits_t limits;
    try {
        const auto key = open_settings_key();
        uint64_t size = 0;
        uint32_t count = 0;
        if (key && key->get_dword_or_qword(L"AgentMaxLogSize", size) &&
            key->get_dword(L"AgentMaxLogCount", count)) {
            limits.max_size = size;
            limits.max_ages = count > max_log_ages ? max_log_ages : count;
        }
    } catch (const std::exception&) {
        // A value of another type: both keep their defaults.
    }
    return limits;
}

void setup_log(const std::string& path, bool quiet, bool check_size)
{
    g_quiet = quiet;
    std::vector<std::string> paths;
    if (!path.empty())
        paths.push_back(path);
    std::vector<std::string> messages;
    init_log(paths, check_size, messages);
    for (const auto& message : messages)
        cli().info(message);
}

bool log_quiet()
{
    return g_quiet;
}

bool init_log(const std::vector<std::string>& paths, bool check_size,
              std::vector<std::string>& messages)
{
    messages.push_back("LOG: Initializing log file ...");
    const auto receiver = paths.empty() ? init_stdout_log(messages) : init_log_file(paths, messages);
    if (!receiver)
        return false;
    const auto log = get_log();
    log->set_receiver(receiver);
    log->set_started();
    log->set_check_size(check_size);
    return true;
}

std::shared_ptr<receiver::log_file_t> init_log_file(const std::vector<std::string>& paths,
                                                    std::vector<std::string>& messages)
{
    try {
        std::string used_path;
        std::shared_ptr<receiver::log_file_t> receiver =
            open_unlocked_log(select_log_path(paths), used_path);
        check_log_size(receiver);
        return receiver;
    } catch (const std::exception& e) {
        messages.push_back("Error: " + util::format_msg("Failed to initialize log [%1].",
                                                        paths.empty() ? "n/a" : paths.front()));
        messages.push_back("Error: " + exception_text(e));
        return nullptr;
    }
}

std::shared_ptr<receiver::log_file_t> init_stdout_log(std::vector<std::string>& messages)
{
    try {
        return std::make_shared<receiver::stdout_log_file_t>();
    } catch (const std::exception& e) {
        messages.push_back("Error: Failed to initialize stdout log.");
        messages.push_back("Error: " + exception_text(e));
        return nullptr;
    }
}

void check_log_size(const std::shared_ptr<receiver::log_file_t>& receiver)
{
    check_log_size(receiver, cached_log_limits());
}

void check_log_size(const std::shared_ptr<receiver::log_file_t>& receiver,
                    const log_limits_t& limits)
{
    try {
        const uint64_t size = receiver->size();
        if (limits.max_size == 0 || size < limits.max_size)
            return;
        const std::string archive = receiver->path() + ".gz";
        age_file(archive, ".log.gz", limits.max_ages);
        auto writer = std::make_shared<util::zip_writer_t>(archive);
        receiver->compress_to(writer);
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Unable to validate log size limit. Log path: [%1].", receiver->path()),
            e);
    }
}

std::wstring default_log_path(const std::wstring& name)
{
    std::wstring folder;
    if (!read_log_directory(folder))
        folder = common_log_folder();
    return win::join_path(folder, name);
}

std::string select_log_path(const std::vector<std::string>& paths)
{
    if (paths.empty())
        throw exc::runtime_exc_t("Log paths list is empty.");
    std::exception_ptr first_failure;
    for (const auto& path : paths) {
        try {
            win::create_folders(path);
            return path;
        } catch (const std::exception&) {
            if (!first_failure)
                first_failure = std::current_exception();
        }
    }
    std::string redirected;
    if (redirect_log_path(paths.front(), redirected)) {
        win::create_folders(redirected);
        return redirected;
    }
    // A library must never end its host's process: the caller goes on without
    // a log, and learns why the first folder could not be made.
    std::rethrow_exception(first_failure);
}

bool redirect_log_path(const std::string& path, std::string& redirected)
{
    std::wstring log_directory;
    if (!read_log_directory(log_directory) ||
        !lies_at_or_below(path, util::wide_to_ansi_safe(log_directory)))
        return false;
    std::string folder, name;
    win::split_path(path, folder, name);
    redirected = util::wide_to_ansi(win::join_path(common_log_folder(), util::ansi_to_wide(name)));
    return true;
}

std::shared_ptr<win::win_log_file_t> open_unlocked_log(const std::string& path,
                                                       std::string& used_path)
{
    for (uint32_t number = 0; number < max_log_names; ++number) {
        const std::string name = number == 0 ? path : numbered_log_name(path, number);
        try {
            auto receiver = std::make_shared<win::win_log_file_t>(name);
            used_path = name;
            return receiver;
        } catch (const exc::file_locked_exc_t&) {
            // Another process writes this one: try the next number.
        }
    }
    throw exc::runtime_exc_t("All log files are locked.");
}

std::string numbered_log_name(const std::string& path, uint32_t number)
{
    const std::string extension = ".log";
    const size_t dot = path.rfind('.');
    std::string stem = path;
    std::string suffix = extension;
    if (dot != std::string::npos && util::iequals(path.substr(dot), extension)) {
        stem = path.substr(0, dot);
        suffix = path.substr(dot);
    } else if (dot != std::string::npos && dot + 1 == path.size()) {
        stem = path.substr(0, dot);
        suffix.clear();
    }
    return stem + "." + util::int_to_str(number) + suffix;
}

void age_file(const std::string& path, const std::string& extension, uint32_t limit)
{
    try {
        // Every archive that moves or goes must be free to do so before the
        // oldest is deleted: an aging that cannot complete leaves them all
        // where they are, rather than losing one age at each attempt.
        for (uint32_t age = 0; age <= limit; ++age) {
            const std::string current = aged_file_name(path, extension, age);
            if (win::file_exists(current))
                win::check_movable(current);
        }
        for (uint32_t age = limit + 1; age-- > 0;) {
            const std::string current = aged_file_name(path, extension, age);
            if (age == limit) {
                if (win::file_exists(current))
                    win::remove_file(current);
            } else if (win::file_exists(current)) {
                win::rename_file(current, aged_file_name(path, extension, age + 1));
            }
        }
    } catch (const std::exception& e) {
        exc::throw_nested_trace(
            util::format_msg("Cannot age file. File path: [%1]. Extension: [%2]. Ages limit: [%3].",
                             path, extension, util::int_to_str(limit)),
            e);
    }
}

std::string aged_file_name(const std::string& path, const std::string& extension, uint32_t age)
{
    if (age == 0)
        return path;
    const std::string number = util::int_to_str(age);
    if (util::ends_with(path, extension))
        return path.substr(0, path.size() - extension.size()) + "." + number + extension;
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos)
        return path + "." + number;
    if (dot + 1 == path.size())
        return path + number;
    return path + "." + number;
}

} // namespace logging
