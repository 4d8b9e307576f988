#pragma once

#include <winsock2.h>

#include <memory>
#include <string>

#include "common/logging/log.h"

namespace logging {
namespace receiver {

// Writes every block to the debugger, and a copy as one UDP datagram to the
// host and port of the external log settings when they enable it. The
// process must have started Winsock; until it has, only the debugger gets
// the lines and the socket is tried again at the next write.
class COutputDebugStringLog : public stream_log_t {
public:
    COutputDebugStringLog();
    ~COutputDebugStringLog() override;
    COutputDebugStringLog(const COutputDebugStringLog&) = delete;
    COutputDebugStringLog& operator=(const COutputDebugStringLog&) = delete;

    void write(const std::string& text) override;

private:
    // Reads the settings in their order; the first failure ends the reading
    // and keeps what was read before it.
    void read_settings() noexcept;

    bool ext_enabled_ = false;
    sockaddr_in address_;
    SOCKET socket_ = INVALID_SOCKET;
};

} // namespace receiver

// The logger of the debug channel: its own log_t, with a debug receiver and
// no size test.
std::shared_ptr<log_t> make_debug_logger();

} // namespace logging
