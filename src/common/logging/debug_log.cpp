#include "common/logging/debug_log.h"

#include "common/strings/strings.h"
#include "common/win/registry.h"

namespace logging {
namespace receiver {

namespace {

// Where datagrams go until the settings say otherwise.
const char* const default_host = "127.0.0.1";
constexpr u_short default_port = 37183;

} // namespace

COutputDebugStringLog::COutputDebugStringLog() : address_()
{
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = inet_addr(default_host);
    address_.sin_port = htons(default_port);
}

COutputDebugStringLog::~COutputDebugStringLog()
{
    if (socket_ != INVALID_SOCKET)
        closesocket(socket_);
}

void COutputDebugStringLog::write(const std::string& text)
{
    OutputDebugStringA(text.c_str());
    if (socket_ == INVALID_SOCKET) {
        socket_ = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
        if (socket_ != INVALID_SOCKET)
            read_settings();
    }
    if (socket_ != INVALID_SOCKET && ext_enabled_)
        sendto(socket_, text.data(), static_cast<int>(text.size()), 0,
               reinterpret_cast<const sockaddr*>(&address_), sizeof(address_));
}

void COutputDebugStringLog::read_settings() noexcept
{
    try {
        const auto key = win::open_subkey(HKEY_LOCAL_MACHINE, L"SOFTWARE\\BrelM\\Brelm NFS");
        if (!key)
            return;
        uint32_t enabled = 0;
        if (!key->get_dword(L"ExtLogEnabled", enabled))
            return;
        ext_enabled_ = enabled != 0;
        if (!ext_enabled_)
            return;
        std::wstring host;
        if (!key->get_string(L"ExtLogHost", host))
            return;
        address_.sin_addr.s_addr = inet_addr(util::wide_to_ansi(host).c_str());
        uint32_t port = 0;
        if (!key->get_dword(L"ExtLogPort", port))
            return;
        address_.sin_port = htons(static_cast<u_short>(port));
    } catch (...) {
        // Settings that cannot be read leave the datagrams where they were.
    }
}

} // namespace receiver

std::shared_ptr<log_t> make_debug_logger()
{
    auto logger = std::make_shared<log_t>();
    logger->set_receiver(std::make_shared<receiver::COutputDebugStringLog>());
    return logger;
}

} // namespace logging
