#include "OrvPlatform/TcpConnect.h"

#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <utility>
#include <vector>

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/AsyncEvent.h"
#include "OrvPlatform/Deadline.h"
#include "OrvPlatform/HostResolver.h"
#include "OrvPlatform/NetworkErrors.h"
#include "OrvPlatform/TaskGroup.h"

namespace orv {

namespace {

using asio::ip::tcp;

constexpr std::chrono::milliseconds headStart{250};

struct Race {
    explicit Race(const asio::any_io_executor& executor) : changed(executor) {}

    AsyncEvent changed;
    std::optional<tcp::socket> winner;
    std::optional<boost::system::error_code> firstFailure;
    std::size_t running = 0;
};

Task<void> attempt(std::shared_ptr<Race> race, tcp::endpoint endpoint) {
    tcp::socket socket(co_await asio::this_coro::executor);
    boost::system::error_code failure;
    co_await socket.async_connect(endpoint, asio::redirect_error(asio::use_awaitable, failure));
    --race->running;
    if (failure) {
        if (!race->firstFailure) race->firstFailure = failure;
    } else if (!race->winner) {
        race->winner.emplace(std::move(socket));
    }
    race->changed.notify();
}

Task<void> untilDecided(std::shared_ptr<Race> race, std::size_t runningBefore) {
    while (!race->winner && race->running >= runningBefore)
        co_await race->changed.wait();
}

/// Failing to tune a socket is no reason not to use it.
void tune(tcp::socket& socket) {
    boost::system::error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    socket.set_option(asio::socket_base::keep_alive(true), ignored);
#ifdef TCP_KEEPIDLE
    constexpr int idleOption = TCP_KEEPIDLE;
#else
    constexpr int idleOption = TCP_KEEPALIVE;
#endif
    const auto set = [&socket](int option, int value) {
        ::setsockopt(socket.native_handle(), IPPROTO_TCP, option, &value, sizeof value);
    };
    set(idleOption, 45);  // seconds
    set(TCP_KEEPINTVL, 10);
    set(TCP_KEEPCNT, 3);
    // What was sent and is not confirmed for so long ends the connection.
#ifdef TCP_USER_TIMEOUT
    set(TCP_USER_TIMEOUT, 45'000);  // milliseconds
#else
    set(TCP_RXT_CONNDROPTIME, 45);  // seconds
#endif
}

}  // namespace

Task<tcp::socket> connectTcp(std::string host, std::uint16_t port, Clock& clock) {
    std::vector<tcp::endpoint> endpoints = co_await resolveHost(std::move(host), port);
    co_return co_await connectToFirst(std::move(endpoints), clock);
}

Task<tcp::socket> connectToFirst(std::vector<tcp::endpoint> endpoints, Clock& clock) {
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const auto race = std::make_shared<Race>(executor);
    const auto nothingElseFails = [](const std::string&, const std::exception&) {};
    TaskGroup attempts(executor, nothingElseFails);
    for (const tcp::endpoint& endpoint : endpoints) {
        const std::size_t running = ++race->running;
        attempts.spawn("connection attempt", attempt(race, endpoint));
        co_await finishedWithin(clock, headStart, untilDecided(race, running));
        if (race->winner) break;
    }
    while (!race->winner && race->running > 0)
        co_await race->changed.wait();
    if (!race->winner) throw connectError(*race->firstFailure);
    tune(*race->winner);
    co_return std::move(*race->winner);
}

}  // namespace orv
