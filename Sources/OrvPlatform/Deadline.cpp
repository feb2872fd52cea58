#include "OrvPlatform/Deadline.h"

#include <exception>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace orv {

Task<bool> finishedWithin(Clock& clock, std::chrono::nanoseconds limit, Task<void> task) {
    const auto executor = co_await asio::this_coro::executor;
    auto race = asio::experimental::make_parallel_group(
        asio::co_spawn(executor, std::move(task), asio::deferred),
        asio::co_spawn(executor, clock.sleepFor(limit), asio::deferred));
    auto [order, error, clockError] =
        co_await race.async_wait(asio::experimental::wait_for_one(), asio::use_awaitable);
    if (!error) co_return true;
    // A task that ended because its time was over ends with the cancellation error.
    if (order[0] == 1 && !clockError) co_return false;
    std::rethrow_exception(error);
}

}  // namespace orv
