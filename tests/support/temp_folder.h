#pragma once

#include <string>

namespace test {

// A fresh folder under the temporary path, unique per process and object,
// deleted with everything in it on destruction.
class temp_folder_t {
public:
    temp_folder_t();
    ~temp_folder_t();
    temp_folder_t(const temp_folder_t&) = delete;
    temp_folder_t& operator=(const temp_folder_t&) = delete;

    // The folder, without a trailing separator.
    const std::wstring& path() const { return path_; }
    // The folder joined with `name` by a backslash.
    std::wstring file(const std::wstring& name) const { return path_ + L"\\" + name; }
    std::string file_utf8(const std::string& name) const;

private:
    std::wstring path_;
};

// The bytes of a file; empty when it cannot be read.
std::string read_file_text(const std::wstring& path);

} // namespace test
