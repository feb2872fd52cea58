#pragma once

#include <chrono>
#include <exception>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Task.h"
#include "Support/FakeClock.h"

namespace orv {

/// The core thread of a test: runs coroutines, moves a fake clock whenever nothing else is ready.
class TestLoop {
public:
    asio::io_context context;

    /// For tests whose code waits on real sockets, processes or workers only.
    TestLoop() = default;

    /// Whenever no work is ready, the clock jumps to its next sleeper.
    explicit TestLoop(FakeClock& drivenClock) : clock(&drivenClock) {}

    asio::any_io_executor executor() { return context.get_executor(); }

    /// Runs the task to its end; returns its value or throws its error. Fails with an exception
    /// when it does not end within the real time given.
    template <typename Value>
    Value run(Task<Value> task, std::chrono::milliseconds patience = std::chrono::seconds(10));

    /// Runs everything that is ready now, including what becomes ready by it; time stands still.
    void runReady();

    /// Runs for a span of the fake clock's time.
    void runFor(std::chrono::nanoseconds span);

private:
    FakeClock* clock = nullptr;
};

template <typename Value>
Value TestLoop::run(Task<Value> task, std::chrono::milliseconds patience) {
    std::exception_ptr error;
    bool isDone = false;
    using Stored = std::conditional_t<std::is_void_v<Value>, bool, Value>;
    std::optional<Stored> result;
    if constexpr (std::is_void_v<Value>) {
        asio::co_spawn(context, std::move(task), [&](std::exception_ptr failure) {
            error = failure;
            isDone = true;
        });
    } else {
        asio::co_spawn(context, std::move(task), [&](std::exception_ptr failure, Value value) {
            error = failure;
            if (!failure) result.emplace(std::move(value));
            isDone = true;
        });
    }
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!isDone) {
        context.restart();
        if (context.poll() > 0) continue;
        if (clock != nullptr && clock->wakeNext()) continue;
        context.restart();
        context.run_one_for(std::chrono::milliseconds(20));
        if (!isDone && std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error("The task did not end in time.");
        }
    }
    if (error) std::rethrow_exception(error);
    if constexpr (!std::is_void_v<Value>) return std::move(*result);
}

inline void TestLoop::runReady() {
    do {
        context.restart();
    } while (context.poll() > 0);
}

inline void TestLoop::runFor(std::chrono::nanoseconds span) {
    const auto limit = clock->monotonicNow().time_since_epoch() + span;
    do {
        runReady();
    } while (clock->wakeNext(limit));
    runReady();
}

/// A task that a test starts, watches and cancels.
class BackgroundTask {
public:
    BackgroundTask(TestLoop& loop, Task<void> task) {
        asio::co_spawn(loop.context, std::move(task),
                       asio::bind_cancellation_slot(signal.slot(), [this](std::exception_ptr e) {
                           error = e;
                           isDone = true;
                       }));
    }

    void cancel() { signal.emit(asio::cancellation_type::terminal); }

    /// Whether it has ended, and with nothing but its cancellation.
    bool wasCancelled() const {
        try {
            if (error) std::rethrow_exception(error);
        } catch (const std::exception& failure) {
            return isCancellation(failure);
        }
        return false;
    }

    bool isDone = false;
    std::exception_ptr error;

private:
    asio::cancellation_signal signal;
};

}  // namespace orv
