#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace util {

// Reads the little-endian wire form that exceptions use to cross process
// and thread boundaries. Every failure raises with the reader's own words.
class CBufReader {
public:
    CBufReader() = default;
    CBufReader(const std::vector<uint8_t>* buffer, uint32_t string_limit);

    void set_buffer(const std::vector<uint8_t>* buffer);
    size_t position() const { return position_; }

    bool read_bool();
    uint32_t read_int();
    std::string read_string();

private:
    const uint8_t* take(size_t count);

    uint32_t string_limit_ = 0xFFFFFFFFu;
    const std::vector<uint8_t>* buffer_ = nullptr;
    size_t position_ = 0;
};

// Appends the same forms to a byte vector whose capacity grows in whole
// mebibytes, so that saving a long exception costs few reallocations.
class CBufWriter {
public:
    static constexpr size_t growth_step = 1048576;

    void write_bool(bool value);
    void write_int(uint32_t value);
    void write_string(const std::string& value);

    const std::vector<uint8_t>& buffer() const { return buffer_; }
    std::vector<uint8_t>& buffer() { return buffer_; }

private:
    void append(const void* data, size_t size);

    std::vector<uint8_t> buffer_;
};

// Bounds-checked element access for the counters' arrays.
uint32_t& checked_at(std::vector<uint32_t>& values, size_t index);
const uint32_t& checked_at(const std::vector<uint32_t>& values, size_t index);

} // namespace util
