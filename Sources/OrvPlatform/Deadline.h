#pragma once

#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"

namespace orv {

/// Runs the task to its end and returns its value, or cancels it when the time is over, waits for
/// its end and returns nothing. Throws what the task throws. The value must be
/// default-constructible.
template <typename Value>
Task<std::optional<Value>> finishedWithin(Clock& clock, std::chrono::nanoseconds limit,
                                          Task<Value> task) {
    const auto executor = co_await asio::this_coro::executor;
    auto race = asio::experimental::make_parallel_group(
        asio::co_spawn(executor, std::move(task), asio::deferred),
        asio::co_spawn(executor, clock.sleepFor(limit), asio::deferred));
    auto [order, error, value, clockError] =
        co_await race.async_wait(asio::experimental::wait_for_one(), asio::use_awaitable);
    if (!error) co_return std::move(value);
    // A task that ended because its time was over ends with the cancellation error.
    if (order[0] == 1 && !clockError) co_return std::nullopt;
    std::rethrow_exception(error);
}

/// The same for a task without a value: whether it ended in time.
inline Task<bool> finishedWithin(Clock& clock, std::chrono::nanoseconds limit, Task<void> task) {
    const auto executor = co_await asio::this_coro::executor;
    auto race = asio::experimental::make_parallel_group(
        asio::co_spawn(executor, std::move(task), asio::deferred),
        asio::co_spawn(executor, clock.sleepFor(limit), asio::deferred));
    auto [order, error, clockError] =
        co_await race.async_wait(asio::experimental::wait_for_one(), asio::use_awaitable);
    if (!error) co_return true;
    if (order[0] == 1 && !clockError) co_return false;
    std::rethrow_exception(error);
}

}  // namespace orv
