#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "OrvPlatform/TcpConnect.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using asio::ip::tcp;

Task<void> connectAndAsk(std::uint16_t port, Clock& clock, int& unconfirmedMilliseconds) {
    tcp::socket socket = co_await connectTcp("127.0.0.1", port, clock);
    socklen_t size = sizeof unconfirmedMilliseconds;
    ::getsockopt(socket.native_handle(), IPPROTO_TCP, TCP_USER_TIMEOUT, &unconfirmedMilliseconds,
                 &size);
}

// What a connection that is not read has left to notice a vanished peer by: its pings.
TEST(TcpConnectLinuxTest, givesUpWhatIsNotConfirmedWithinThreeQuartersOfAMinute) {
    FakeClock clock;
    TestLoop loop;
    const tcp::acceptor server(loop.context, {asio::ip::address_v4::loopback(), 0});
    int unconfirmedMilliseconds = 0;
    loop.run(connectAndAsk(server.local_endpoint().port(), clock, unconfirmedMilliseconds));
    EXPECT_EQ(unconfirmedMilliseconds, 45'000);
}

}  // namespace
}  // namespace orv
