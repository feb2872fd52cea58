#include "Support/TestLoop.h"

#include <stdexcept>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/co_spawn.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

TestLoop::TestLoop() = default;

TestLoop::TestLoop(FakeClock& drivenClock) : clock(&drivenClock) {
}

void TestLoop::runToEnd(Task<void> task, std::chrono::milliseconds patience) {
    std::exception_ptr error;
    bool isDone = false;
    asio::co_spawn(context, std::move(task), [&](std::exception_ptr failure) {
        error = std::move(failure);
        isDone = true;
    });
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
}

void TestLoop::runReady() {
    do {
        context.restart();
    } while (context.poll() > 0);
}

void TestLoop::runFor(std::chrono::nanoseconds span) {
    const auto limit = clock->monotonicNow().time_since_epoch() + span;
    do {
        runReady();
    } while (clock->wakeNext(limit));
    runReady();
}

BackgroundTask::BackgroundTask(TestLoop& loop, Task<void> task) {
    asio::co_spawn(loop.context, std::move(task),
                   asio::bind_cancellation_slot(signal.slot(), [this](std::exception_ptr e) {
                       error = std::move(e);
                       isDone = true;
                   }));
}

bool BackgroundTask::wasCancelled() const {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        return isCancellation(failure);
    }
    return false;
}

}  // namespace orv
