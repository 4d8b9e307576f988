#include <winsock2.h>

#include <gtest/gtest.h>

#include "common/logging/debug_log.h"
#include "support/registry_sandbox.h"

namespace {

const wchar_t* const settings_key = L"SOFTWARE\\BrelM\\Brelm NFS";

// A UDP socket on the loopback address that waits a short while for one datagram.
class LoopbackListener {
public:
    explicit LoopbackListener(u_short port = 0)
    {
        WSADATA data;
        started_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
        socket_ = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = inet_addr("127.0.0.1");
        address.sin_port = htons(port);
        bound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
        int length = sizeof(address);
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        DWORD timeout_ms = 300;
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeout_ms),
                   sizeof(timeout_ms));
    }
    ~LoopbackListener()
    {
        closesocket(socket_);
        if (started_)
            WSACleanup();
    }
    LoopbackListener(const LoopbackListener&) = delete;
    LoopbackListener& operator=(const LoopbackListener&) = delete;

    bool ready() const { return started_ && bound_; }
    u_short port() const { return port_; }

    // The next datagram, or "<nothing>" when none came in time.
    std::string receive()
    {
        char buffer[2048];
        const int got = recv(socket_, buffer, sizeof(buffer), 0);
        return got < 0 ? std::string("<nothing>") : std::string(buffer, static_cast<size_t>(got));
    }

private:
    bool started_ = false;
    bool bound_ = false;
    SOCKET socket_ = INVALID_SOCKET;
    u_short port_ = 0;
};

class DebugReceiver : public testing::Test {
protected:
    // What one fresh receiver sends for `text` to the listener.
    std::string sent(LoopbackListener& listener, const std::string& text)
    {
        logging::receiver::COutputDebugStringLog receiver;
        receiver.write(text);
        return listener.receive();
    }

    test::registry_sandbox_t sandbox;
};

TEST_F(DebugReceiver, ExternalLogGetsEachBlockAsOneDatagramOnlyWhenEnabled)
{
    LoopbackListener listener;
    ASSERT_TRUE(listener.ready());
    sandbox.set_string(settings_key, L"ExtLogHost", L"127.0.0.1");
    sandbox.set_dword(settings_key, L"ExtLogPort", listener.port());
    EXPECT_EQ("<nothing>", sent(listener, "absent flag"));
    sandbox.set_string(settings_key, L"ExtLogEnabled", L"1");
    EXPECT_EQ("<nothing>", sent(listener, "flag of the wrong type"));
    sandbox.set_dword(settings_key, L"ExtLogEnabled", 0);
    EXPECT_EQ("<nothing>", sent(listener, "flag at zero"));

    sandbox.set_dword(settings_key, L"ExtLogEnabled", 1);
    logging::receiver::COutputDebugStringLog receiver;
    receiver.write("first line\nsecond line\n");
    receiver.write("x");
    EXPECT_EQ("first line\nsecond line\n", listener.receive());
    EXPECT_EQ("x", listener.receive());
}

TEST_F(DebugReceiver, MissingHostKeepsTheDefaultAddressAndPort)
{
    LoopbackListener listener(37183);
    ASSERT_TRUE(listener.ready()) << "the default port is taken on this machine";
    sandbox.set_dword(settings_key, L"ExtLogEnabled", 1);
    sandbox.set_dword(settings_key, L"ExtLogPort", 1);
    EXPECT_EQ("to the default", sent(listener, "to the default"));
}

} // namespace
