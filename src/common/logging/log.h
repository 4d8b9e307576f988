#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "common/strings/strings.h"

namespace util {
class zip_writer_t;
}

namespace logging {

enum level_t : int { level_detail = 1, level_info = 2, level_warning = 3, level_error = 4 };

namespace receiver {

// Where finished blocks of log lines go: a file, standard output, the debugger.
class log_file_t {
public:
    virtual void write(const std::string& text) = 0;
    virtual const std::string& path() const = 0;
    virtual const std::string& line_end() const = 0;
    virtual uint64_t size() = 0;
    virtual void compress_to(const std::shared_ptr<util::zip_writer_t>& writer) = 0;
    virtual ~log_file_t() = default;

    bool flush_each_write = false;
};

// A receiver that keeps nothing once written: no path, no size, nothing to
// compress.
class stream_log_t : public log_file_t {
public:
    const std::string& path() const override { return path_; }
    const std::string& line_end() const override { return line_end_; }
    uint64_t size() override { return 0; }
    void compress_to(const std::shared_ptr<util::zip_writer_t>&) override {}

private:
    std::string path_;
    std::string line_end_ = "\n";
};

} // namespace receiver

namespace format {

// The tag written on every line of the long form: "name| ", or nothing.
class line_format_t {
public:
    explicit line_format_t(const std::string& name);
    static std::shared_ptr<line_format_t> with_tag(const std::string& tag);

    const std::string& tag() const { return tag_; }

private:
    line_format_t() = default;
    std::string tag_;
};

} // namespace format

// Maps the text of each line before it is written.
class text_filter_t {
public:
    virtual ~text_filter_t() = default;
    virtual std::string apply(const std::string& line) = 0;
};

// The process-wide logger: formats a message into lines and hands the block
// to one receiver. Never raises.
class log_t {
public:
    void set_receiver(std::shared_ptr<receiver::log_file_t> receiver);
    void set_started();
    void set_check_size(bool check);
    void set_short_format(uint32_t value);
    void set_stopped(bool value);
    void set_filter(std::shared_ptr<text_filter_t> filter);

    std::shared_ptr<receiver::log_file_t> receiver() const;
    bool started() const;

    void write(int level, int indent, const std::shared_ptr<format::line_format_t>& format,
               const std::string& text) noexcept;

    int indent() const noexcept;
    void increase_indent() noexcept;
    void decrease_indent() noexcept;

private:
    std::string format_block(int level, int indent, const format::line_format_t& format,
                             const std::string& text, const std::string& line_end) const;

    mutable std::recursive_mutex mutex_;
    std::shared_ptr<receiver::log_file_t> receiver_;
    bool started_ = false;
    uint32_t short_format_ = 0;
    bool stopped_ = false;
    bool check_size_ = false;
    int32_t lines_since_check_ = 0;
    // Set while a size test runs, on the thread that holds the lock: a line
    // logged from inside the test is written like any other, but starts no
    // second test.
    bool size_test_running_ = false;
    std::shared_ptr<text_filter_t> filter_;
};

// The process-wide logger, built on first use.
std::shared_ptr<log_t> get_log();

// The text of a caught exception for a log line: what(), or the fixed text
// when what() is null.
std::string exception_text(const std::exception& caught);
// "\nAn exception was thrown from thread [id]." ("n/a" for foreign exceptions).
std::string thread_line(const std::exception& caught);

// A named handle on a logger: every line it writes carries its tag.
class log_channel_t {
    // Keeps an indent number from being taken for a format text.
    template <typename F>
    using text_only_t = std::enable_if_t<!std::is_integral<F>::value>;

public:
    log_channel_t(std::shared_ptr<log_t> log, std::shared_ptr<format::line_format_t> format);

    void info(const std::string& text) const noexcept;
    void info(int indent, const std::string& text) const noexcept;
    void detail(const std::string& text) const noexcept;
    void warning(const std::string& text) const noexcept;
    void error(const std::string& text) const noexcept;

    template <typename F, typename A1, typename... Args, typename = text_only_t<F>>
    void info(const F& format, const A1& a1, const Args&... args) const noexcept
    {
        info(format_args(format, a1, args...));
    }
    template <typename F, typename A1, typename... Args, typename = text_only_t<F>>
    void detail(const F& format, const A1& a1, const Args&... args) const noexcept
    {
        detail(format_args(format, a1, args...));
    }
    template <typename F, typename A1, typename... Args, typename = text_only_t<F>>
    void warning(const F& format, const A1& a1, const Args&... args) const noexcept
    {
        warning(format_args(format, a1, args...));
    }
    template <typename F, typename A1, typename... Args, typename = text_only_t<F>>
    void error(const F& format, const A1& a1, const Args&... args) const noexcept
    {
        error(format_args(format, a1, args...));
    }

    // Level 3: text, "\n" and what(); text alone when what() is null.
    void warning_exc(const std::string& text, const std::exception& caught) const noexcept;
    // Level 3 (4 when what() is null): what() or the fixed text.
    void warning_exc(const std::exception& caught) const noexcept;
    // Level 4: text, "\n" and what(), then the thread line.
    void error_exc(const std::string& text, const std::exception& caught) const noexcept;
    // The same, closed by a line of advice for the operator.
    void error_exc(const std::string& text, const std::exception& caught,
                   const std::string& hint) const noexcept;
    // Level 4: what() or the fixed text, then the thread line.
    void error_exc(const std::exception& caught) const noexcept;

    void write(int level, int indent, const std::string& text) const noexcept;
    const std::shared_ptr<log_t>& logger() const { return log_; }

private:
    template <typename F, typename... Args>
    static std::string format_args(const F& format, const Args&... args) noexcept
    {
        try {
            return util::format_msg_list(format, {std::string(args)...});
        } catch (...) {
            return format;
        }
    }

    std::shared_ptr<log_t> log_;
    std::shared_ptr<format::line_format_t> format_;
};

// The channels of the library. The Oracle code writes on `oralib`, the
// foundation on the empty tag, log start-up on `cli`; `emergency` has a tag of
// five blanks; `dbg` has its own logger that writes to the debugger.
const log_channel_t& log();
const log_channel_t& cli();
const log_channel_t& oralib();
const log_channel_t& emergency();
const log_channel_t& dbg();

// Brackets one step: the text at level 1 on entry, then " ok." (level 1) or
// " Failed." (level 2) at the end.
class log_operation_t {
public:
    log_operation_t(const log_channel_t& channel, const std::string& text);
    template <typename A1, typename... Args>
    log_operation_t(const log_channel_t& channel, const std::string& format, const A1& a1,
                    const Args&... args)
        : log_operation_t(channel, util::format_msg_list(format, {std::string(a1),
                                                                  std::string(args)...}))
    {
    }
    log_operation_t(const log_operation_t&) = delete;
    log_operation_t& operator=(const log_operation_t&) = delete;
    ~log_operation_t();

    void ok() noexcept;
    void failed() noexcept;

private:
    // Marks the operation finished and takes back its indent; false when it
    // already was.
    bool finish() noexcept;

    bool finished_ = false;
    const log_channel_t* channel_;
    std::string text_;
};

} // namespace logging
