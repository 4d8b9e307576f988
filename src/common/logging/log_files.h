#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/logging/log.h"

namespace logging {

// The size test of the live log file: rotates it into a gz archive and ages
// the older archives when it has reached the configured limit.
void check_log_size(const std::shared_ptr<receiver::log_file_t>& receiver);

} // namespace logging
