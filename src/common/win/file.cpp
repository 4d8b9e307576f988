#include "common/win/file.h"

#include <filesystem>

#include <shlwapi.h>

#include "common/exc/exc.h"
#include "common/logging/log.h"
#include "common/strings/strings.h"
#include "common/win/access.h"
#include "common/win/last_error.h"

namespace win {

namespace {

using session_ptr = std::shared_ptr<win_impersonation_session_t>;

// The lock of another handle on a byte range is waited out this long.
constexpr DWORD lock_wait_step_ms = 100;
constexpr DWORD lock_wait_limit_ms = 5000;
// Module paths are read into a buffer of MAX_PATH characters.
constexpr DWORD module_path_chars = 260;
// SYNCHRONIZE | FILE_TRAVERSE: enough to open any object, file or folder.
constexpr DWORD probe_access = SYNCHRONIZE | FILE_TRAVERSE;

template <typename Char>
bool is_separator_char(Char c)
{
    return c == static_cast<Char>('\\') || c == static_cast<Char>('/');
}

void check_path_access(const path_param_t& path)
{
    if (path.is_wide())
        check_access(path.wide());
    else
        check_access(path.narrow());
}

session_ptr path_session(const path_param_t& path)
{
    return path.is_wide() ? get_session(path.wide()) : get_session(path.narrow());
}

session_ptr parent_session(const path_param_t& path)
{
    if (path.is_wide()) {
        std::wstring folder, name;
        split_path(path.wide(), folder, name);
        return get_session(folder);
    }
    std::string folder, name;
    split_path(path.narrow(), folder, name);
    return get_session(folder);
}

// The session is held only while the file is opened; the code of a failed
// open is kept across its end, since ending a session may touch the last error.
win_file_ptr open_read_write(const path_param_t& path, DWORD disposition)
{
    check_path_access(path);
    unique_handle_t handle;
    DWORD code = ERROR_SUCCESS;
    {
        session_ptr session = path_session(path);
        handle.reset(CreateFileW(path.wide().c_str(), GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                                 nullptr));
        code = GetLastError();
    }
    if (!handle)
        throw exc::win_sys_exc_t("Failed to create or open file [%1].", path.narrow(), code);
    return std::make_shared<win_file_t>(std::move(handle), path);
}

win_file_ptr open_read(const path_param_t& path, DWORD flags, const char* failure_text)
{
    check_path_access(path);
    unique_handle_t handle;
    DWORD code = ERROR_SUCCESS;
    {
        session_ptr session = path_session(path);
        const std::wstring& wide = path.wide();
        handle.reset(CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                 OPEN_EXISTING, flags, nullptr));
        code = GetLastError();
        if (!handle && code == ERROR_ACCESS_DENIED) {
            handle.reset(CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, flags | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
            code = GetLastError();
        } else if (!handle && code == ERROR_SHARING_VIOLATION) {
            handle.reset(CreateFileW(wide.c_str(), GENERIC_READ,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                     flags, nullptr));
            code = GetLastError();
        }
    }
    if (!handle)
        throw exc::win_sys_exc_t(failure_text, path.narrow(), code);
    return std::make_shared<win_file_t>(std::move(handle), path);
}

std::string method_name(DWORD method)
{
    switch (method) {
    case FILE_BEGIN:
        return "FILE_BEGIN";
    case FILE_CURRENT:
        return "FILE_CURRENT";
    case FILE_END:
        return "FILE_END";
    default:
        return util::int_to_str(static_cast<uint32_t>(method));
    }
}

bool is_bare_share(const std::wstring& path)
{
    if (path.compare(0, 2, L"\\\\") != 0 || path.compare(0, 4, L"\\\\?\\") == 0)
        return false;
    std::vector<std::wstring> parts;
    split_path_parts(path, parts);
    return parts.size() == 2;
}

bool istarts_with_any(const std::wstring& path, const wchar_t* a, const wchar_t* b)
{
    return util::istarts_with(path, a) || util::istarts_with(path, b);
}

// How many leading separators belong to parts that are never made: the UNC
// prefix with server and share, or the long prefix with its drive.
size_t fixed_separator_count(const std::wstring& path)
{
    if (istarts_with_any(path, L"\\\\?\\UNC\\", L"//?/UNC/"))
        return 6;
    if (istarts_with_any(path, L"\\\\?\\", L"//?/"))
        return 4;
    if (istarts_with_any(path, L"\\\\", L"//"))
        return 4;
    return 0;
}

template <typename Text>
void split_path_impl(const Text& path, Text& folder, Text& name)
{
    size_t pos = path.size();
    while (pos > 0 && !is_separator_char(path[pos - 1]))
        --pos;
    if (pos == 0) {
        folder.clear();
        name = path;
        return;
    }
    folder = path.substr(0, pos - 1);
    name = path.substr(pos);
}

template <typename Text>
Text join_path_impl(const Text& folder, const Text& name, typename Text::value_type separator)
{
    if (folder.empty())
        return name;
    if (is_separator_char(folder.back()))
        return folder + name;
    return folder + separator + name;
}

template <typename Text>
Text strip_trailing_separator_impl(const Text& path)
{
    if (!path.empty() && is_separator_char(path.back()))
        return path.substr(0, path.size() - 1);
    return path;
}

template <typename Text>
void split_path_parts_impl(const Text& path, std::vector<Text>& parts)
{
    parts.clear();
    Text part;
    for (auto c : path) {
        if (is_separator_char(c)) {
            if (!part.empty())
                parts.push_back(part);
            part.clear();
        } else {
            part.push_back(c);
        }
    }
    if (!part.empty())
        parts.push_back(part);
}

template <typename Text>
bool is_network_path_impl(const Text& path)
{
    using Char = typename Text::value_type;
    const Char bs = static_cast<Char>('\\');
    const Text unc_long{bs, bs, static_cast<Char>('?'), bs, static_cast<Char>('U'),
                        static_cast<Char>('N'), static_cast<Char>('C')};
    const Text long_prefix{bs, bs, static_cast<Char>('?'), bs};
    if (path.compare(0, unc_long.size(), unc_long) == 0)
        return true;
    return path.size() >= 2 && path[0] == bs && path[1] == bs &&
           path.compare(0, long_prefix.size(), long_prefix) != 0;
}

class system_file_write_api_t : public file_write_api_t {
public:
    BOOL write_file(HANDLE handle, const void* data, DWORD size, DWORD* written) const override
    {
        return WriteFile(handle, data, size, written, nullptr);
    }
};

} // namespace

const file_write_api_t& system_file_write_api()
{
    static const system_file_write_api_t api;
    return api;
}

std::string message_text(const path_param_t& path)
{
    return path.narrow();
}

const std::string& path_param_t::narrow() const
{
    convert();
    return narrow_;
}

const std::wstring& path_param_t::wide() const
{
    convert();
    return wide_;
}

void path_param_t::convert() const
{
    if (origin_ == origin_t::none)
        throw exc::runtime_exc_t("Parameter is not available.");
    if (converted_)
        return;
    if (origin_ == origin_t::wide)
        narrow_ = util::wide_to_utf8(wide_);
    else
        wide_ = util::utf8_to_wide(narrow_);
    converted_ = true;
}

win_file_t::win_file_t(unique_handle_t handle, path_param_t path)
    : handle_(std::move(handle)), path_(std::move(path))
{
}

void win_file_t::write(uint32_t size, const void* data)
{
    DWORD written = 0;
    DWORD waited_ms = 0;
    for (;;) {
        if (write_api_->write_file(handle_.get(), data, size, &written))
            break;
        if (GetLastError() != ERROR_LOCK_VIOLATION)
            throw_last_error("Failed to write data to the file [%1].", path_);
        logging::log().warning_exc(exc::win_sys_exc_t("Failed to write data to the file [%1].",
                                                      get_path(), ERROR_LOCK_VIOLATION));
        Sleep(lock_wait_step_ms);
        waited_ms += lock_wait_step_ms;
        logging::log().warning("Retry.");
        if (waited_ms >= lock_wait_limit_ms)
            break;
    }
    counters_.bytes_written += written;
    ++counters_.writes;
    ++writes_since_flush_;
    if (written != size)
        throw exc::runtime_exc_t(
            "Failed to write %1 bytes to the file '%2': %3 bytes were written instead",
            util::int_to_str(size), get_path(), util::int_to_str(written));
}

uint32_t win_file_t::read(void* data, uint32_t size)
{
    DWORD got = 0;
    if (!ReadFile(handle_.get(), data, size, &got, nullptr))
        throw_last_error("Failed to read data from the file [%1].", path_);
    counters_.bytes_read += got;
    ++counters_.reads;
    return got;
}

uint64_t win_file_t::seek(int64_t distance, DWORD method)
{
    LARGE_INTEGER move;
    move.QuadPart = distance;
    LARGE_INTEGER position;
    position.QuadPart = 0;
    if (!SetFilePointerEx(handle_.get(), move, &position, method))
        throw_last_error(
            "Seek operation has failed. File: [%1]. Distance to move: [%2]. Move method: [%3].",
            path_, [distance] { return util::int_to_str(distance); },
            [method] { return method_name(method); });
    return static_cast<uint64_t>(position.QuadPart);
}

uint64_t win_file_t::seek_from_start(uint64_t offset)
{
    return seek(static_cast<int64_t>(offset), FILE_BEGIN);
}

uint64_t win_file_t::seek_from_end(int64_t offset)
{
    return seek(offset, FILE_END);
}

uint64_t win_file_t::size()
{
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle_.get(), &size))
        throw_last_error("WINAPI: Cannot get file size. File: [%1].", path_);
    return static_cast<uint64_t>(size.QuadPart);
}

void win_file_t::flush()
{
    if (!FlushFileBuffers(handle_.get()))
        throw_last_error("Failed to flush file buffers. File: [%1].", path_);
    writes_since_flush_ = 0;
}

void win_file_t::reset_size(uint64_t size)
{
    LARGE_INTEGER move;
    move.QuadPart = static_cast<LONGLONG>(size);
    if (!SetFilePointerEx(handle_.get(), move, nullptr, FILE_BEGIN))
        throw_last_error("Unable to reset file size: move operation has failed. "
                         "Specified file size: [%1]. File: [%2].",
                         [size] { return util::int_to_str(size); }, path_);
    if (!SetEndOfFile(handle_.get()))
        throw_last_error("Unable to reset file size: trunk operation has failed. File: [%1].",
                         path_);
}

win_file_ptr create_file(const path_param_t& path)
{
    return open_read_write(path, CREATE_ALWAYS);
}

win_file_ptr open_or_create_file(const path_param_t& path)
{
    return open_read_write(path, OPEN_ALWAYS);
}

win_file_ptr open_file_read(const path_param_t& path)
{
    return open_read(path, 0, "Failed to open file [%1] in readonly mode.");
}

win_file_ptr open_file_read_no_cache(const path_param_t& path)
{
    return open_read(path, FILE_FLAG_NO_BUFFERING,
                     "Failed to open file [%1] in readonly mode (without cache).");
}

std::string read_whole_file(const path_param_t& path)
{
    const win_file_ptr file = open_file_read(path);
    std::string content(static_cast<size_t>(file->size()), '\0');
    size_t done = 0;
    while (done < content.size()) {
        const uint32_t read = file->read(&content[done], static_cast<uint32_t>(content.size() - done));
        if (read == 0)
            break;
        done += read;
    }
    content.resize(done);
    return content;
}

win_file_ptr attach_file(HANDLE handle, const path_param_t& path)
{
    return std::make_shared<win_file_t>(unique_handle_t(handle), path);
}

bool file_exists(const path_param_t& path)
{
    check_path_access(path);
    const std::wstring target = strip_trailing_separator(path.wide());
    const std::wstring pattern = is_bare_share(target) ? target + L"\\*" : target;

    WIN32_FIND_DATAW found;
    const unique_find_t find(FindFirstFileW(pattern.c_str(), &found));
    if (find)
        return true;
    const DWORD code = GetLastError();
    if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND)
        logging::log().warning_exc(exc::win_sys_exc_t("Failed to check whether file '%1' exists.",
                                                      path.narrow(), code));

    if (PathFileExistsW(target.c_str()))
        return true;

    const unique_handle_t probe(CreateFileW(target.c_str(), probe_access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return probe.valid();
}

bool parent_exists(const path_param_t& path)
{
    std::wstring folder, name;
    split_path(path.wide(), folder, name);
    return !folder.empty() && file_exists(folder);
}

uint64_t file_size(const path_param_t& path)
{
    return open_file_read(path)->size();
}

void remove_file(const path_param_t& path)
{
    check_path_access(path);
    session_ptr session = parent_session(path);
    std::filesystem::remove(std::filesystem::path(path.wide()));
}

void remove_folder(const path_param_t& path)
{
    check_path_access(path);
    session_ptr session = parent_session(path);
    std::filesystem::remove(std::filesystem::path(path.wide()));
}

void rename_file(const path_param_t& from, const path_param_t& to)
{
    check_path_access(from);
    check_path_access(to);
    session_ptr session = parent_session(to);
    std::filesystem::rename(std::filesystem::path(from.wide()), std::filesystem::path(to.wide()));
}

void check_movable(const path_param_t& path)
{
    check_path_access(path);
    session_ptr session = parent_session(path);
    const unique_handle_t probe(CreateFileW(path.wide().c_str(), DELETE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                            nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                            nullptr));
    if (!probe)
        throw_last_error("File [%1] cannot be moved: it is held open.", path);
}

void create_folders(const path_param_t& path)
{
    check_path_access(path);
    session_ptr session = path_session(path);
    for (const auto& text : folders_to_make(path.wide())) {
        const std::filesystem::path folder(text);
        if (!std::filesystem::exists(std::filesystem::status(folder)))
            std::filesystem::create_directory(folder);
    }
}

std::vector<std::wstring> folders_to_make(const std::wstring& path)
{
    std::vector<size_t> separators;
    for (size_t i = 0; i < path.size(); ++i) {
        if (is_separator_char(path[i]))
            separators.push_back(i);
    }
    std::vector<std::wstring> folders;
    for (size_t i = fixed_separator_count(path); i < separators.size(); ++i)
        folders.push_back(path.substr(0, separators[i] + 1));
    return folders;
}

std::wstring get_temp_path()
{
    std::wstring buffer(MAX_PATH + 1, L'\0');
    DWORD length = GetTempPathW(static_cast<DWORD>(buffer.size()), &buffer[0]);
    if (length > buffer.size()) {
        buffer.resize(length);
        length = GetTempPathW(static_cast<DWORD>(buffer.size()), &buffer[0]);
    }
    if (length == 0)
        throw_last_error(
            "Failed to retrieve the path of the directory designated for temporary files.");
    buffer.resize(length);
    return buffer;
}

std::wstring get_module_path()
{
    std::wstring buffer(module_path_chars, L'\0');
    const DWORD length = GetModuleFileNameW(nullptr, &buffer[0], module_path_chars);
    if (length == 0)
        throw_last_error("Fully-qualified path for the executable file cannot be retrieved.");
    buffer.resize(length);
    return buffer;
}

bool is_network_path(const std::wstring& path)
{
    return is_network_path_impl(path);
}

bool is_network_path(const std::string& path)
{
    return is_network_path_impl(path);
}

void split_path(const std::wstring& path, std::wstring& folder, std::wstring& name)
{
    split_path_impl(path, folder, name);
}

void split_path(const std::string& path, std::string& folder, std::string& name)
{
    split_path_impl(path, folder, name);
}

std::wstring join_path(const std::wstring& folder, const std::wstring& name, wchar_t separator)
{
    return join_path_impl(folder, name, separator);
}

std::string join_path(const std::string& folder, const std::string& name, char separator)
{
    return join_path_impl(folder, name, separator);
}

std::wstring strip_trailing_separator(const std::wstring& path)
{
    return strip_trailing_separator_impl(path);
}

std::string strip_trailing_separator(const std::string& path)
{
    return strip_trailing_separator_impl(path);
}

void split_path_parts(const std::wstring& path, std::vector<std::wstring>& parts)
{
    split_path_parts_impl(path, parts);
}

void split_path_parts(const std::string& path, std::vector<std::string>& parts)
{
    split_path_parts_impl(path, parts);
}

} // namespace win
