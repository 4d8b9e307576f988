#include "common/exc/exc.h"

#include "common/logging/log.h"
#include "common/strings/buf_reader.h"
#include "common/strings/strings.h"
#include "common/win/handle.h"

#include <windows.h>
#include <oleauto.h>

#include <system_error>

namespace exc {
namespace {

constexpr uint32_t first_event_code = 1;
constexpr uint32_t last_event_code = 7;
constexpr DWORD english_us = 1033;
constexpr uint32_t wininet_first_code = 12000;
constexpr uint32_t wininet_last_code = 12175;

bool format_system_message(DWORD flags, HMODULE module, DWORD language, uint32_t code,
                           std::string& out)
{
    win::unique_local_t<wchar_t*> buffer;
    const DWORD length =
        FormatMessageW(flags | FORMAT_MESSAGE_ALLOCATE_BUFFER, module, code, language,
                       reinterpret_cast<wchar_t*>(buffer.put()), 0, nullptr);
    if (length == 0 || !buffer)
        return false;
    out = util::wide_to_utf8(std::wstring(buffer.get(), length));
    return true;
}

std::string bstr_to_utf8(BSTR text)
{
    if (text == nullptr)
        return std::string();
    return util::wide_to_utf8(std::wstring(text, SysStringLen(text)));
}

// Asks the thread's COM error object for its description; asking clears it.
std::string take_com_description()
{
    IErrorInfo* info = nullptr;
    if (GetErrorInfo(0, &info) != S_OK || info == nullptr)
        return std::string();
    BSTR description = nullptr;
    std::string text;
    if (SUCCEEDED(info->GetDescription(&description)) && description != nullptr) {
        text = bstr_to_utf8(description);
        SysFreeString(description);
    }
    info->Release();
    return text;
}

[[noreturn]] void nest(const std::string& message, const std::exception& caught, const exc_trace_t& trace,
          bool is_trace)
{
    if (auto* own = dynamic_cast<exc_base_t*>(const_cast<std::exception*>(&caught))) {
        if (is_trace)
            own->add_trace_message(message);
        else
            own->add_message(message);
        own->trace().merge(trace);
        throw;
    }
    const char* what = caught.what();
    std::string text = what != nullptr ? what : "";
    uint32_t code = 0;
    if (const auto* system = dynamic_cast<const std::system_error*>(&caught)) {
        code = static_cast<uint32_t>(system->code().value());
        text = util::ansi_to_utf8_safe(text);
    }
    runtime_exc_t wrapped(text, code);
    if (is_trace)
        wrapped.add_trace_message(message);
    else
        wrapped.add_message(message);
    wrapped.trace().merge(trace);
    throw wrapped;
}

} // namespace

void exc_trace_t::merge(const exc_trace_t& other)
{
    for (const auto& param : other.params) {
        bool found = false;
        for (auto& mine : params) {
            if (mine.first == param.first) {
                mine.second = param.second;
                found = true;
                break;
            }
        }
        if (!found)
            params.push_back(param);
    }
    events.insert(events.end(), other.events.begin(), other.events.end());
}

std::string error_code_text(uint32_t code)
{
    return util::hex_str(code);
}

std::string get_error_text(uint32_t code)
{
    std::string text;
    if (!format_system_message(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                               english_us, code, text)) {
        HMODULE wininet = nullptr;
        if (code >= wininet_first_code && code <= wininet_last_code)
            wininet = GetModuleHandleW(L"wininet.dll");
        if (wininet == nullptr ||
            !format_system_message(FORMAT_MESSAGE_FROM_HMODULE, wininet, 0, code, text))
            text = util::ansi_to_utf8_safe(std::system_category().message(static_cast<int>(code)));
    }
    return util::strip_line_end(text);
}

exc_base_t::exc_base_t() : thread_id_(GetCurrentThreadId()) {}

exc_base_t::exc_base_t(const std::string& message) : thread_id_(GetCurrentThreadId())
{
    add_line(message, false);
}

const char* exc_base_t::what() const noexcept
{
    return text_.c_str();
}

std::shared_ptr<exc_base_t> exc_base_t::clone() const
{
    return std::make_shared<exc_base_t>(*this);
}

void exc_base_t::rethrow() const
{
    throw exc_base_t(*this);
}

void exc_base_t::load(util::CBufReader& reader)
{
    std::vector<message_line_t> lines;
    const uint32_t line_count = reader.read_int();
    for (uint32_t i = 0; i < line_count; ++i) {
        message_line_t line;
        line.text = reader.read_string();
        line.is_trace = reader.read_bool();
        lines.push_back(line);
    }
    exc_trace_t trace;
    const uint32_t param_count = reader.read_int();
    for (uint32_t i = 0; i < param_count; ++i) {
        std::string name = reader.read_string();
        std::string value = reader.read_string();
        trace.params.emplace_back(std::move(name), std::move(value));
    }
    const uint32_t event_count = reader.read_int();
    for (uint32_t i = 0; i < event_count; ++i) {
        exc_trace_event_t event;
        event.code = reader.read_int();
        event.info = reader.read_string();
        if (event.code < first_event_code || event.code > last_event_code) {
            logging::log().warning("Unexpected trace event: [%1]. Info: %2.",
                                   util::int_to_str(event.code), event.info);
            continue;
        }
        trace.events.push_back(event);
    }
    lines_ = std::move(lines);
    trace_ = std::move(trace);
    compose();
}

void exc_base_t::save(util::CBufWriter& writer) const
{
    writer.write_int(static_cast<uint32_t>(lines_.size()));
    for (const auto& line : lines_) {
        writer.write_string(line.text);
        writer.write_bool(line.is_trace);
    }
    writer.write_int(static_cast<uint32_t>(trace_.params.size()));
    for (const auto& param : trace_.params) {
        writer.write_string(param.first);
        writer.write_string(param.second);
    }
    writer.write_int(static_cast<uint32_t>(trace_.events.size()));
    for (const auto& event : trace_.events) {
        writer.write_int(event.code);
        writer.write_string(event.info);
    }
}

void exc_base_t::translate(const std::shared_ptr<translator_t>& translator)
{
    if (!translator)
        return;
    for (auto& line : lines_) {
        std::string out;
        translator->translate(out, line.text, 0);
        line.text = out;
    }
    compose();
}

void exc_base_t::add_message(const std::string& text)
{
    add_line(text, false);
}

void exc_base_t::add_trace_message(const std::string& text)
{
    add_line(text, true);
}

void exc_base_t::add_line(const std::string& text, bool is_trace)
{
    lines_.push_back(message_line_t{text, is_trace});
    compose();
}

void exc_base_t::add_error_code_trace(uint32_t code)
{
    add_line("Error code: " + error_code_text(code), true);
}

void exc_base_t::compose()
{
    text_.clear();
    plain_text_.clear();
    bool first = true;
    for (const auto& line : lines_) {
        if (!first) {
            text_ += "\n";
            plain_text_ += "\n";
        }
        first = false;
        plain_text_ += line.text;
        if (line.is_trace)
            text_ += "--tr:";
        text_ += line.text;
    }
}

runtime_exc_t::runtime_exc_t(const std::string& message) : exc_impl_t(message) {}

runtime_exc_t::runtime_exc_t(const std::string& message, uint32_t code)
    : exc_impl_t(message), code_(code)
{
}

runtime_exc_t::runtime_exc_t(const std::string& format, const std::string& a1)
    : exc_impl_t(util::format_msg(format, a1))
{
}

runtime_exc_t::runtime_exc_t(const std::string& format, const std::string& a1,
                             const std::string& a2)
    : exc_impl_t(util::format_msg(format, a1, a2))
{
}

runtime_exc_t::runtime_exc_t(const std::string& format, const std::string& a1,
                             const std::string& a2, const std::string& a3)
    : exc_impl_t(util::format_msg(format, a1, a2, a3))
{
}

void runtime_exc_t::load(util::CBufReader& reader)
{
    exc_base_t::load(reader);
    code_ = reader.read_int();
}

void runtime_exc_t::save(util::CBufWriter& writer) const
{
    exc_base_t::save(writer);
    writer.write_int(code_);
}

win_sys_exc_t::win_sys_exc_t(uint32_t code)
{
    set_code(code);
    add_line(get_error_text(code), false);
    add_error_code_trace(code);
}

win_sys_exc_t::win_sys_exc_t(const std::string& message, uint32_t code)
{
    set_code(code);
    add_line(get_error_text(code), false);
    add_line(message, false);
    add_error_code_trace(code);
}

win_sys_exc_t::win_sys_exc_t(const std::string& format, const std::string& a1, uint32_t code)
    : win_sys_exc_t(util::format_msg(format, a1), code)
{
}

win_sys_exc_t::win_sys_exc_t(const std::string& format, const std::string& a1,
                             const std::string& a2, uint32_t code)
    : win_sys_exc_t(util::format_msg(format, a1, a2), code)
{
}

win_sys_exc_t::win_sys_exc_t(const std::string& format, const std::string& a1,
                             const std::string& a2, const std::string& a3, uint32_t code)
    : win_sys_exc_t(util::format_msg(format, a1, a2, a3), code)
{
}

com_exc_t::com_exc_t(long hresult, const std::string& message)
{
    set_code(static_cast<uint32_t>(hresult));
    const std::string suffix = " Error code: " + error_code_text(static_cast<uint32_t>(hresult));
    add_line(take_com_description() + suffix, false);
    const std::string later = take_com_description();
    if (!later.empty())
        add_line(later, false);
    add_line(message, false);
}

file_locked_exc_t::file_locked_exc_t(const std::string& path)
    : exc_base_t(util::format_msg("File [%1] is locked.", path)), path_(path)
{
}

std::shared_ptr<exc_base_t> file_locked_exc_t::clone() const
{
    return std::make_shared<file_locked_exc_t>(*this);
}

void throw_nested(const std::string& message, const std::exception& caught,
                  const exc_trace_t& trace)
{
    nest(message, caught, trace, false);
}

void throw_nested_trace(const std::string& message, const std::exception& caught,
                        const exc_trace_t& trace)
{
    nest(message, caught, trace, true);
}

std::shared_ptr<exc_base_t> to_exc_ptr(const std::exception& caught)
{
    if (const auto* own = dynamic_cast<const exc_base_t*>(&caught))
        return own->clone();
    const char* what = caught.what();
    return std::make_shared<runtime_exc_t>(std::string(what != nullptr ? what : ""), 0u);
}

} // namespace exc
