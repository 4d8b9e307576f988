#pragma once

namespace util {

// The block that opens every log: the host executable, the library's version,
// the system and the process.
void write_banner() noexcept;

} // namespace util
