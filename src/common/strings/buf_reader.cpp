#include "common/strings/buf_reader.h"

#include "common/exc/exc.h"
#include "common/strings/strings.h"

#include <cstring>

namespace util {

CBufReader::CBufReader(const std::vector<uint8_t>* buffer, uint32_t string_limit)
    : string_limit_(string_limit), buffer_(buffer)
{
}

void CBufReader::set_buffer(const std::vector<uint8_t>* buffer)
{
    buffer_ = buffer;
    position_ = 0;
}

const uint8_t* CBufReader::take(size_t count)
{
    if (buffer_ == nullptr)
        throw exc::runtime_exc_t("CBufReader buffer not initialized.");
    if (position_ + count > buffer_->size())
        throw exc::runtime_exc_t(
            "Out of the buffer, buffer size '%1', struct size '%2', buffer pointer '%3'.",
            int_to_str(buffer_->size()),
            int_to_str(count),
            int_to_str(position_));
    const uint8_t* data = buffer_->data() + position_;
    position_ += count;
    return data;
}

bool CBufReader::read_bool()
{
    try {
        return *take(1) != 0;
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to extract boolean value from buffer.", e);
    }
}

uint32_t CBufReader::read_int()
{
    try {
        const uint8_t* p = take(4);
        return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
               (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to extract integer value from buffer.", e);
    }
}

std::string CBufReader::read_string()
{
    try {
        const uint8_t* p = take(4);
        const uint32_t length = static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
                                (static_cast<uint32_t>(p[2]) << 16) |
                                (static_cast<uint32_t>(p[3]) << 24);
        if (length > string_limit_)
            throw exc::runtime_exc_t("Invalid length of the string '%1'.", int_to_str(length));
        const uint8_t* data = take(length);
        return std::string(reinterpret_cast<const char*>(data), length);
    } catch (const std::exception& e) {
        exc::throw_nested_trace("Failed to extract multi-byte string from buffer .", e);
    }
}

void CBufWriter::append(const void* data, size_t size)
{
    const size_t needed = buffer_.size() + size;
    if (needed > buffer_.capacity())
        buffer_.reserve((needed + growth_step - 1) / growth_step * growth_step);
    const auto* bytes = static_cast<const uint8_t*>(data);
    buffer_.insert(buffer_.end(), bytes, bytes + size);
}

void CBufWriter::write_bool(bool value)
{
    const uint8_t byte = value ? 1 : 0;
    append(&byte, 1);
}

void CBufWriter::write_int(uint32_t value)
{
    const uint8_t bytes[4] = {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8),
                              static_cast<uint8_t>(value >> 16),
                              static_cast<uint8_t>(value >> 24)};
    append(bytes, 4);
}

void CBufWriter::write_string(const std::string& value)
{
    write_int(static_cast<uint32_t>(value.size()));
    append(value.data(), value.size());
}

namespace {
[[noreturn]] void throw_out_of_bound(size_t index, size_t size)
{
    throw exc::runtime_exc_t(
        "Out of the array bound. Index of the requested array element: [%1]. Array size: [%2].",
        int_to_str(index), int_to_str(size));
}
} // namespace

uint32_t& checked_at(std::vector<uint32_t>& values, size_t index)
{
    if (index >= values.size())
        throw_out_of_bound(index, values.size());
    return values[index];
}

const uint32_t& checked_at(const std::vector<uint32_t>& values, size_t index)
{
    if (index >= values.size())
        throw_out_of_bound(index, values.size());
    return values[index];
}

} // namespace util
