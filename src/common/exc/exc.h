#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace util {
class CBufReader;
class CBufWriter;
}

namespace exc {

struct message_line_t {
    std::string text;
    bool is_trace = false;
};

struct exc_trace_event_t {
    uint32_t code = 0;
    std::string info;
};

// Named values and events that travel beside the lines. Parameters keep the
// place where they were first added.
struct exc_trace_t {
    std::vector<std::pair<std::string, std::string>> params;
    std::vector<exc_trace_event_t> events;

    void merge(const exc_trace_t& other);
    bool empty() const { return params.empty() && events.empty(); }
};

// Maps the text of one line to another text, e.g. into another language.
class translator_t {
public:
    virtual ~translator_t() = default;
    virtual void translate(std::string& out, const std::string& line, int reserved) = 0;
};

// Root of every failure in the library: an ordered list of lines, each plain
// or trace, composed into `text` (trace lines prefixed "--tr:") and
// `plain_text` (no prefixes). The lines read from the root cause outward.
class exc_base_t : public std::exception {
public:
    exc_base_t();
    explicit exc_base_t(const std::string& message);
    ~exc_base_t() override = default;

    const char* what() const noexcept final;
    virtual std::shared_ptr<exc_base_t> clone() const;
    [[noreturn]] virtual void rethrow() const;
    virtual void load(util::CBufReader& reader);
    virtual void save(util::CBufWriter& writer) const;
    void translate(const std::shared_ptr<translator_t>& translator);

    void add_message(const std::string& text);
    void add_trace_message(const std::string& text);

    const std::vector<message_line_t>& lines() const { return lines_; }
    const std::string& text() const { return text_; }
    const std::string& plain_text() const { return plain_text_; }
    const exc_trace_t& trace() const { return trace_; }
    exc_trace_t& trace() { return trace_; }
    uint32_t thread_id() const { return thread_id_; }

protected:
    void add_line(const std::string& text, bool is_trace);
    void add_error_code_trace(uint32_t code);

private:
    void compose();

    std::vector<message_line_t> lines_;
    std::string text_;
    std::string plain_text_;
    exc_trace_t trace_;
    uint32_t thread_id_;
};

// Gives a class of the family the copy and the rethrow that keep its own
// dynamic type, so that a failure handed across threads stays what it was.
template <typename Derived, typename Base>
class exc_impl_t : public Base {
public:
    using Base::Base;

    std::shared_ptr<exc_base_t> clone() const override
    {
        return std::make_shared<Derived>(static_cast<const Derived&>(*this));
    }
    [[noreturn]] void rethrow() const override { throw static_cast<const Derived&>(*this); }

protected:
    exc_impl_t() = default;
};

class runtime_exc_t : public exc_impl_t<runtime_exc_t, exc_base_t> {
public:
    explicit runtime_exc_t(const std::string& message);
    runtime_exc_t(const std::string& message, uint32_t code);
    runtime_exc_t(const std::string& format, const std::string& a1);
    runtime_exc_t(const std::string& format, const std::string& a1, const std::string& a2);
    runtime_exc_t(const std::string& format, const std::string& a1, const std::string& a2,
                  const std::string& a3);

    void load(util::CBufReader& reader) override;
    void save(util::CBufWriter& writer) const override;

    uint32_t code() const { return code_; }

protected:
    runtime_exc_t() = default;
    void set_code(uint32_t code) { code_ = code; }

private:
    uint32_t code_ = 0;
};

// A failed Win32 call: the system's text for the code comes first, then the
// caller's message, then the trace line "Error code: 0x........".
class win_sys_exc_t : public exc_impl_t<win_sys_exc_t, runtime_exc_t> {
public:
    explicit win_sys_exc_t(uint32_t code);
    win_sys_exc_t(const std::string& message, uint32_t code);
    win_sys_exc_t(const std::string& format, const std::string& a1, uint32_t code);
    win_sys_exc_t(const std::string& format, const std::string& a1, const std::string& a2,
                  uint32_t code);
    win_sys_exc_t(const std::string& format, const std::string& a1, const std::string& a2,
                  const std::string& a3, uint32_t code);
};

// A failed COM call, with the thread's COM error description when one is set.
class com_exc_t : public exc_impl_t<com_exc_t, runtime_exc_t> {
public:
    com_exc_t(long hresult, const std::string& message);
};

// Only the opening of a log file raises and catches this at once; a rethrow
// or a save/load deliberately reduces it to its base.
class file_locked_exc_t : public exc_base_t {
public:
    explicit file_locked_exc_t(const std::string& path);

    std::shared_ptr<exc_base_t> clone() const override;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// System text of a Win32 error code, in UTF-8, without a closing "\r\n".
std::string get_error_text(uint32_t code);

// Called from inside a catch block: adds `message` to the exception in flight
// (or to a new runtime_exc_t built from a foreign one) and rethrows it.
[[noreturn]] void throw_nested(const std::string& message, const std::exception& caught,
                               const exc_trace_t& trace = exc_trace_t());
[[noreturn]] void throw_nested_trace(const std::string& message, const std::exception& caught,
                                     const exc_trace_t& trace = exc_trace_t());

// A copy of a caught exception that can be handed to another thread.
std::shared_ptr<exc_base_t> to_exc_ptr(const std::exception& caught);

// "0x" and eight lower-case hex digits.
std::string error_code_text(uint32_t code);

} // namespace exc
