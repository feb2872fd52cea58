#include "OrvPlatform/Clock.h"

#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace orv {

WallTime SystemClock::now() const {
    return std::chrono::system_clock::now();
}

MonotonicTime SystemClock::monotonicNow() const {
    return std::chrono::steady_clock::now();
}

Task<void> SystemClock::sleepFor(std::chrono::nanoseconds duration) {
    asio::steady_timer timer(co_await asio::this_coro::executor, duration);
    co_await timer.async_wait(asio::use_awaitable);
}

}  // namespace orv
