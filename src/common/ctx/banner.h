#pragma once

namespace util {

// The block that opens every log: the host executable with its version, the
// system and the process, then the library's own version and build.
void write_banner() noexcept;

} // namespace util
