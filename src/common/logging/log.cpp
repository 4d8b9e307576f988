#include "common/logging/log.h"

#include "common/exc/exc.h"
#include "common/logging/debug_log.h"
#include "common/logging/log_files.h"
#include "common/logging/thread_trace.h"
#include "common/win/handle.h"

#include <windows.h>

#include <cstdio>
#include <ctime>

namespace logging {
namespace {

constexpr int32_t messages_between_size_tests = 1000;

// Indent of the calling thread. A plain int: a thread_local with a destructor
// would pin the library in the host process.
thread_local int t_indent = 0;

std::string time_column()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
#ifdef _WIN32
    if (localtime_s(&local, &now) != 0)
        return "TIME ---";
#else
    if (localtime_r(&now, &local) == nullptr)
        return "TIME ---";
#endif
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "[%02d.%02d.%04d %02d:%02d:%02d] ", local.tm_mday,
                  local.tm_mon + 1, local.tm_year + 1900, local.tm_hour, local.tm_min,
                  local.tm_sec);
    return buffer;
}

std::vector<std::string> split_lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (true) {
        const size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            if (start < text.size() || lines.empty())
                lines.push_back(text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

const char* level_mark(int level, bool first_line)
{
    if (level == level_warning)
        return first_line ? "WARN|" : ">>  |";
    if (level == level_error)
        return first_line ? "ERR |" : ">>  |";
    return "";
}

const char* level_word(int level)
{
    switch (level) {
    case level_detail:
    case level_info:
        return "Info     ";
    case level_warning:
        return "Warning  ";
    case level_error:
        return "Error    ";
    default:
        return "";
    }
}

std::shared_ptr<format::line_format_t> named(const char* name)
{
    return std::make_shared<format::line_format_t>(name);
}

// Every tag of the agent's vocabulary, created in one fixed order so that
// they are torn down in the reverse one.
struct channel_set_t {
    std::shared_ptr<log_t> debug_log = make_debug_logger();
    log_channel_t empty{get_log(), named("")};
    log_channel_t dmn{get_log(), named("dmn")};
    log_channel_t cli{get_log(), named("cli")};
    log_channel_t srv{get_log(), named("srv")};
    log_channel_t prt{get_log(), named("prt")};
    log_channel_t vcb{get_log(), named("vcb")};
    log_channel_t vcb_again{get_log(), named("vcb")};
    log_channel_t drv{get_log(), named("drv")};
    log_channel_t stg{get_log(), named("stg")};
    log_channel_t cpl{get_log(), named("cpl")};
    log_channel_t bkp{get_log(), named("bkp")};
    log_channel_t nfs{get_log(), named("nfs")};
    log_channel_t rpc{get_log(), named("rpc")};
    log_channel_t dbg{debug_log, named("dbg")};
    log_channel_t vhd{get_log(), named("vhd")};
    log_channel_t azure{get_log(), named("azure")};
    log_channel_t mnt{get_log(), named("mnt")};
    log_channel_t dt{get_log(), named("dt ")};
    log_channel_t oralib{get_log(), named("oralib")};
    log_channel_t emergency{get_log(), format::line_format_t::with_tag("     ")};
};

// Text, "\n" and what() when there is one, then the thread line.
std::string error_block(const std::string& text, const std::exception& caught)
{
    const char* what = caught.what();
    return (what != nullptr ? text + "\n" + what : text) + thread_line(caught);
}

channel_set_t& channels()
{
    static channel_set_t set;
    return set;
}

} // namespace

namespace format {

line_format_t::line_format_t(const std::string& name) : tag_(name.empty() ? "" : name + "| ") {}

std::shared_ptr<line_format_t> line_format_t::with_tag(const std::string& tag)
{
    std::shared_ptr<line_format_t> format(new line_format_t());
    format->tag_ = tag;
    return format;
}

} // namespace format

std::shared_ptr<log_t> get_log()
{
    static std::shared_ptr<log_t> log = std::make_shared<log_t>();
    return log;
}

void log_t::set_receiver(std::shared_ptr<receiver::log_file_t> receiver)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    receiver_ = std::move(receiver);
}

void log_t::set_started()
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    started_ = true;
}

void log_t::set_check_size(bool check)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    check_size_ = check;
}

void log_t::set_short_format(uint32_t value)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    short_format_ = value;
}

void log_t::set_stopped(bool value)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    stopped_ = value;
}

void log_t::set_filter(std::shared_ptr<text_filter_t> filter)
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    filter_ = std::move(filter);
}

std::shared_ptr<receiver::log_file_t> log_t::receiver() const
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return receiver_;
}

bool log_t::started() const
{
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return started_;
}

int log_t::indent() const noexcept
{
    return t_indent;
}

void log_t::increase_indent() noexcept
{
    ++t_indent;
}

void log_t::decrease_indent() noexcept
{
    if (t_indent > 0)
        --t_indent;
}

std::string log_t::format_block(int level, int indent, const format::line_format_t& format,
                                const std::string& text, const std::string& line_end) const
{
    const std::string time = time_column();
    const DWORD thread = GetCurrentThreadId();
    char thread_column[32];
    if (short_format_ == 0)
        std::snprintf(thread_column, sizeof thread_column, "<%6lu> ",
                      static_cast<unsigned long>(thread));
    else
        std::snprintf(thread_column, sizeof thread_column, "<%2lu> ",
                      static_cast<unsigned long>(thread % 100));
    const std::string indentation(static_cast<size_t>(indent > 0 ? indent : 0) * 2, ' ');

    std::string block;
    const std::vector<std::string> lines = split_lines(text);
    for (size_t i = 0; i < lines.size(); ++i) {
        block += time;
        block += thread_column;
        if (short_format_ == 0) {
            block += format.tag();
            block += level_mark(level, i == 0);
        } else {
            block += level_word(level);
        }
        block += indentation;
        block += filter_ ? filter_->apply(lines[i]) : lines[i];
        block += line_end;
    }
    return block;
}

void log_t::write(int level, int indent, const std::shared_ptr<format::line_format_t>& format,
                  const std::string& text) noexcept
{
    try {
        std::lock_guard<std::recursive_mutex> lock(mutex_);
        if (stopped_ || !receiver_ || !format)
            return;
        const std::shared_ptr<receiver::log_file_t> target = receiver_;
        const std::string block = format_block(level, indent, *format, text, target->line_end());
        target->write(block);
        if (check_size_ && !size_test_running_ &&
            ++lines_since_check_ >= messages_between_size_tests) {
            size_test_running_ = true;
            const auto finished = win::scope_exit([this] { size_test_running_ = false; });
            check_log_size(target);
            lines_since_check_ = 0;
        }
    } catch (...) {
        // A backup must never fail for want of a log line.
    }
}

std::string exception_text(const std::exception& caught)
{
    const char* what = caught.what();
    return what != nullptr ? std::string(what) : std::string("Exception message is not available.");
}

std::string thread_line(const std::exception& caught)
{
    std::string id = "n/a";
    if (const auto* own = dynamic_cast<const exc::exc_base_t*>(&caught)) {
        if (own->thread_id() != 0)
            id = util::int_to_str(own->thread_id());
    }
    return "\nAn exception was thrown from thread [" + id + "].";
}

log_channel_t::log_channel_t(std::shared_ptr<log_t> log,
                             std::shared_ptr<format::line_format_t> format)
    : log_(std::move(log)), format_(std::move(format))
{
}

void log_channel_t::write(int level, int indent, const std::string& text) const noexcept
{
    const std::shared_ptr<log_t> log = log_;
    if (log)
        log->write(level, indent, format_, text);
}

void log_channel_t::info(const std::string& text) const noexcept
{
    write(level_info, log_ ? log_->indent() : 0, text);
}

void log_channel_t::info(int indent, const std::string& text) const noexcept
{
    write(level_info, indent, text);
}

void log_channel_t::detail(const std::string& text) const noexcept
{
    write(level_detail, log_ ? log_->indent() : 0, text);
}

void log_channel_t::warning(const std::string& text) const noexcept
{
    write(level_warning, 0, text);
}

void log_channel_t::error(const std::string& text) const noexcept
{
    write(level_error, 0, text);
}

void log_channel_t::warning_exc(const std::string& text, const std::exception& caught) const
    noexcept
{
    try {
        const char* what = caught.what();
        write(level_warning, 0, what != nullptr ? text + "\n" + what : text);
    } catch (...) {
    }
}

void log_channel_t::warning_exc(const std::exception& caught) const noexcept
{
    try {
        write(caught.what() != nullptr ? level_warning : level_error, 0,
              exception_text(caught));
    } catch (...) {
    }
}

void log_channel_t::error_exc(const std::string& text, const std::exception& caught) const
    noexcept
{
    try {
        write(level_error, 0, error_block(text, caught));
    } catch (...) {
    }
}

void log_channel_t::error_exc(const std::string& text, const std::exception& caught,
                              const std::string& hint) const noexcept
{
    try {
        write(level_error, 0, error_block(text, caught) + "\n" + hint);
    } catch (...) {
    }
}

void log_channel_t::error_exc(const std::exception& caught) const noexcept
{
    try {
        write(level_error, 0, exception_text(caught) + thread_line(caught));
    } catch (...) {
    }
}

const log_channel_t& log() { return channels().empty; }
const log_channel_t& cli() { return channels().cli; }
const log_channel_t& oralib() { return channels().oralib; }
const log_channel_t& emergency() { return channels().emergency; }
const log_channel_t& dbg() { return channels().dbg; }

log_operation_t::log_operation_t(const log_channel_t& channel, const std::string& text)
    : channel_(&channel), text_(text)
{
    channel_->detail(text_);
    if (channel_->logger())
        channel_->logger()->increase_indent();
    try {
        if (auto trace = monitoring::CThreadStatesCollection::instance().find(GetCurrentThreadId()))
            trace->push(text_);
    } catch (...) {
    }
}

log_operation_t::~log_operation_t()
{
    try {
        if (auto trace = monitoring::CThreadStatesCollection::instance().find(GetCurrentThreadId()))
            trace->pop();
    } catch (...) {
    }
    if (!finished_)
        failed();
}

bool log_operation_t::finish() noexcept
{
    if (finished_)
        return false;
    finished_ = true;
    if (channel_->logger())
        channel_->logger()->decrease_indent();
    return true;
}

void log_operation_t::ok() noexcept
{
    if (!finish())
        return;
    try {
        channel_->detail(text_ + " ok.");
    } catch (...) {
    }
}

void log_operation_t::failed() noexcept
{
    if (!finish())
        return;
    try {
        channel_->info(text_ + " Failed.");
    } catch (...) {
    }
}

} // namespace logging
