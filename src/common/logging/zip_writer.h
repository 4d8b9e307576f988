#pragma once

#include <cstdint>
#include <string>

#include <zlib.h>

namespace util {

// A gz archive written at compression level 9; closed by the destructor,
// which logs a failed close instead of raising.
class zip_writer_t {
public:
    explicit zip_writer_t(const std::string& path);
    ~zip_writer_t();
    zip_writer_t(const zip_writer_t&) = delete;
    zip_writer_t& operator=(const zip_writer_t&) = delete;

    void add(const void* data, uint32_t size);

    const std::string& path() const { return path_; }

private:
    std::string path_;
    gzFile file_ = nullptr;
};

} // namespace util
