#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>

#include "common/win/handle.h"

namespace win {

// A path given in either narrow (UTF-8) or wide form; the other form is made
// on first request. A default-constructed object holds neither.
class path_param_t {
public:
    path_param_t() = default;
    path_param_t(const std::string& utf8) : narrow_(utf8), origin_(origin_t::narrow) {}
    path_param_t(const char* utf8) : path_param_t(std::string(utf8)) {}
    path_param_t(const std::wstring& wide) : wide_(wide), origin_(origin_t::wide) {}
    path_param_t(const wchar_t* wide) : path_param_t(std::wstring(wide)) {}

    const std::string& narrow() const;
    const std::wstring& wide() const;
    // Whether the path was given in wide form.
    bool is_wide() const { return origin_ == origin_t::wide; }

private:
    enum class origin_t { none, narrow, wide };
    // Fills the other form from the given one, once.
    void convert() const;

    mutable std::string narrow_;
    mutable std::wstring wide_;
    origin_t origin_ = origin_t::none;
    mutable bool converted_ = false;
};

// Per-file I/O statistics for the performance logger.
struct file_counters_t {
    uint64_t bytes_read = 0;
    uint64_t bytes_written = 0;
    uint32_t reads = 0;
    uint32_t writes = 0;
};

// The system call behind win_file_t::write. Wine does not enforce byte-range
// locks on writes, so tests put a replacement here to show a locked range.
class file_write_api_t {
public:
    virtual BOOL write_file(HANDLE handle, const void* data, DWORD size, DWORD* written) const = 0;
    virtual ~file_write_api_t() = default;
};

const file_write_api_t& system_file_write_api();

// An open file. Made only by the factories below and held by shared pointer.
class win_file_t {
public:
    win_file_t(unique_handle_t handle, path_param_t path);
    win_file_t(const win_file_t&) = delete;
    win_file_t& operator=(const win_file_t&) = delete;

    // Writes all of `data`; waits out a byte-range lock of another handle for
    // up to five seconds, in steps of 100 ms.
    void write(uint32_t size, const void* data);
    // The bytes read; 0 at the end of the file.
    uint32_t read(void* data, uint32_t size);
    // The new position from the start.
    uint64_t seek(int64_t distance, DWORD method);
    uint64_t seek_from_start(uint64_t offset);
    uint64_t seek_from_end(int64_t offset);
    uint64_t size();
    void flush();
    void reset_size(uint64_t size);

    const std::string& get_path() const { return path_.narrow(); }
    HANDLE handle() const { return handle_.get(); }
    const file_counters_t& counters() const { return counters_; }
    uint32_t writes_since_flush() const { return writes_since_flush_; }
    void use_write_api(const file_write_api_t& api) { write_api_ = &api; }

private:
    unique_handle_t handle_;
    path_param_t path_;
    file_counters_t counters_;
    uint32_t writes_since_flush_ = 0;
    const file_write_api_t* write_api_ = &system_file_write_api();
};

using win_file_ptr = std::shared_ptr<win_file_t>;

// Read and write, shared for reading by others; replaces an existing file.
win_file_ptr create_file(const path_param_t& path);
// Read and write, shared for reading by others; keeps an existing file.
win_file_ptr open_or_create_file(const path_param_t& path);
// Read only. Falls back to backup semantics when access is denied, and to
// sharing with writers when someone is writing the file.
win_file_ptr open_file_read(const path_param_t& path);
win_file_ptr open_file_read_no_cache(const path_param_t& path);
// The whole content of the file at `path`, opened as open_file_read does; a file
// that shrinks while it is read gives what was there.
std::string read_whole_file(const path_param_t& path);
// Takes over a handle that is already open.
win_file_ptr attach_file(HANDLE handle, const path_param_t& path);

// Whether anything is at `path`: a listing, the shell's test, then an open
// with backup semantics. Never raises for a path that is simply absent.
bool file_exists(const path_param_t& path);
bool parent_exists(const path_param_t& path);
uint64_t file_size(const path_param_t& path);
void remove_file(const path_param_t& path);
void remove_folder(const path_param_t& path);
void rename_file(const path_param_t& from, const path_param_t& to);
// Raises when `path` cannot be renamed or deleted now, because another holder
// keeps it open without letting it go.
void check_movable(const path_param_t& path);
// Makes every missing folder above the file `path`; the last part is a file
// name and is never made. Server and share parts of a UNC path are skipped.
void create_folders(const path_param_t& path);
// The folders create_folders looks at for `path`, outermost first, each with
// its trailing separator.
std::vector<std::wstring> folders_to_make(const std::wstring& path);

std::wstring get_temp_path();
// The path of the executable of the process.
std::wstring get_module_path();

bool is_network_path(const std::wstring& path);
bool is_network_path(const std::string& path);

// Cuts at the last "\" or "/". With neither, `folder` is empty.
void split_path(const std::wstring& path, std::wstring& folder, std::wstring& name);
void split_path(const std::string& path, std::string& folder, std::string& name);
// `folder`, `separator` and `name`; no second separator when `folder` ends in
// one, and `name` alone when `folder` is empty.
std::wstring join_path(const std::wstring& folder, const std::wstring& name,
                       wchar_t separator = L'\\');
std::string join_path(const std::string& folder, const std::string& name, char separator = '\\');
// Removes one trailing "\" or "/".
std::wstring strip_trailing_separator(const std::wstring& path);
std::string strip_trailing_separator(const std::string& path);
// The parts between separators, empty ones dropped.
void split_path_parts(const std::wstring& path, std::vector<std::wstring>& parts);
void split_path_parts(const std::string& path, std::vector<std::string>& parts);

} // namespace win
