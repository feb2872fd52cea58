#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <sys/socket.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/TcpConnect.h"
#include "OrvPlatform/UrlError.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using asio::ip::tcp;

Task<void> keep(Task<tcp::socket> connecting, std::optional<tcp::socket>& result) {
    result.emplace(co_await std::move(connecting));
}

class TcpConnectTest : public testing::Test {
protected:
    FakeClock clock;
    TestLoop loop;

    tcp::endpoint on(const char* address, std::uint16_t port = 0) {
        return {asio::ip::make_address(address), port};
    }

    tcp::socket connected(Task<tcp::socket> connecting) {
        std::optional<tcp::socket> socket;
        loop.run(keep(std::move(connecting), socket));
        return std::move(*socket);
    }

    /// Nobody listens there.
    tcp::endpoint refusing() {
        return tcp::acceptor(loop.context, on("127.0.0.1")).local_endpoint();
    }

    int optionOf(tcp::socket& socket, int level, int name) {
        int value = 0;
        socklen_t size = sizeof value;
        ::getsockopt(socket.native_handle(), level, name, &value, &size);
        return value;
    }
};

/// Takes no connection and refuses none, like an address behind a broken route: its queue is full.
class Nowhere {
public:
    explicit Nowhere(asio::io_context& context) : listener(context) {
        listener.open(tcp::v4());
        listener.bind({asio::ip::address_v4::loopback(), 0});
        listener.listen(0);
        for (int i = 0; i < 4; ++i) {
            fillers.emplace_back(context, tcp::v4());
            fillers.back().non_blocking(true);
            const tcp::endpoint target = listener.local_endpoint();
            // Not by the library, which would wait for the outcome.
            ::connect(fillers.back().native_handle(), target.data(),
                      static_cast<socklen_t>(target.size()));
        }
    }
    tcp::endpoint endpoint() const { return listener.local_endpoint(); }

private:
    tcp::acceptor listener;
    std::vector<tcp::socket> fillers;
};

TEST_F(TcpConnectTest, sendsAtOnceAndProbesSilentPeers) {
    tcp::acceptor server(loop.context, on("127.0.0.1"));
    tcp::socket socket = connected(connectTcp("127.0.0.1", server.local_endpoint().port(), clock));
    EXPECT_NE(optionOf(socket, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(optionOf(socket, SOL_SOCKET, SO_KEEPALIVE), 0);
    EXPECT_EQ(optionOf(socket, IPPROTO_TCP, TCP_KEEPINTVL), 10);
}

TEST_F(TcpConnectTest, anAddressThatRefusesCostsNoTime) {
    tcp::acceptor server(loop.context, on("127.0.0.1"));
    const tcp::socket socket =
        connected(connectToFirst({refusing(), refusing(), server.local_endpoint()}, clock));
    EXPECT_EQ(socket.remote_endpoint(), server.local_endpoint());
    EXPECT_EQ(clock.monotonicNow(), MonotonicTime());
}

TEST_F(TcpConnectTest, anAddressThatLeadsNowhereCostsAQuarterOfASecond) {
    const Nowhere nowhere(loop.context);
    tcp::acceptor server(loop.context, on("127.0.0.1"));
    std::optional<tcp::socket> socket;
    BackgroundTask connecting(
        loop, keep(connectToFirst({nowhere.endpoint(), server.local_endpoint()}, clock), socket));
    loop.runReady();
    EXPECT_FALSE(connecting.isDone);
    EXPECT_TRUE(clock.wakeNext(250ms));
    loop.runReady();
    ASSERT_TRUE(connecting.isDone);
    ASSERT_TRUE(socket);
    EXPECT_EQ(socket->remote_endpoint(), server.local_endpoint());
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST_F(TcpConnectTest, theFirstToAnswerWinsThoughItsHeadStartWasWasted) {
    const Nowhere nowhere(loop.context);
    std::optional<tcp::socket> socket;
    BackgroundTask connecting(
        loop, keep(connectToFirst({nowhere.endpoint(), refusing()}, clock), socket));
    loop.runReady();
    clock.wakeNext(250ms);
    loop.runReady();
    // The second one refused, but the first may still answer.
    EXPECT_FALSE(connecting.isDone);
    connecting.cancel();
    loop.runReady();
    EXPECT_TRUE(connecting.isDone);
    EXPECT_FALSE(socket);
}

TEST_F(TcpConnectTest, tellsTheFirstReasonWhenNoAddressAnswers) {
    try {
        connected(connectToFirst({refusing(), refusing()}, clock));
        ADD_FAILURE() << "connected";
    } catch (const UrlError& error) {
        EXPECT_STREQ(error.what(), "Connection refused (cannotConnectToHost)");
    }
}

}  // namespace
}  // namespace orv
