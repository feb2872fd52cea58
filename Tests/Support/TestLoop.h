#pragma once

#include <chrono>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/io_context.hpp>

#include "OrvPlatform/Task.h"
#include "Support/FakeClock.h"

namespace orv {

/// The core thread of a test: runs coroutines, moves a fake clock whenever nothing else is ready.
class TestLoop {
public:
    asio::io_context context;

    /// For tests whose code waits on real sockets, processes or workers only.
    TestLoop();

    /// Whenever no work is ready, the clock jumps to its next sleeper.
    explicit TestLoop(FakeClock& drivenClock);

    asio::any_io_executor executor() { return context.get_executor(); }

    /// Runs the task to its end; returns its value or throws its error. Fails with an exception
    /// when it does not end within the real time given.
    template <typename Value>
    Value run(Task<Value> task, std::chrono::milliseconds patience = std::chrono::seconds(10)) {
        if constexpr (std::is_void_v<Value>) {
            runToEnd(std::move(task), patience);
        } else {
            std::optional<Value> value;
            runToEnd(keepValue(std::move(task), &value), patience);
            return std::move(*value);
        }
    }

    /// Runs everything that is ready now, including what becomes ready by it; time stands still.
    void runReady();

    /// Runs for a span of the fake clock's time.
    void runFor(std::chrono::nanoseconds span);

private:
    void runToEnd(Task<void> task, std::chrono::milliseconds patience);

    FakeClock* clock = nullptr;
};

/// A task that a test starts, watches and cancels.
class BackgroundTask {
public:
    BackgroundTask(TestLoop& loop, Task<void> task);
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    void cancel() { signal.emit(asio::cancellation_type::terminal); }

    /// Whether it has ended, and with nothing but its cancellation.
    bool wasCancelled() const;

    bool isDone = false;
    std::exception_ptr error;

private:
    asio::cancellation_signal signal;
};

}  // namespace orv
