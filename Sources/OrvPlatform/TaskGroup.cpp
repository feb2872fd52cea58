#include "OrvPlatform/TaskGroup.h"

#include <list>
#include <utility>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "OrvPlatform/Cancellation.h"

namespace orv {

struct TaskGroup::State {
    using Signals = std::list<std::shared_ptr<asio::cancellation_signal>>;

    State(asio::any_io_executor runsOn, FailureHandler handler)
        : executor(std::move(runsOn)),
          onFailure(std::move(handler)),
          allEnded(executor, asio::steady_timer::time_point::max()) {}

    asio::any_io_executor executor;
    FailureHandler onFailure;
    bool isAbandoned = false;
    Signals signals;
    asio::steady_timer allEnded;  // never expires; its waits are cancelled when all have ended

    void cancel() {
        // A task may end, and leave the list, while it is being told.
        for (auto signal = signals.begin(); signal != signals.end();) {
            (*signal++)->emit(asio::cancellation_type::terminal);
        }
    }

    void ended(const std::string& name, Signals::iterator signal, std::exception_ptr error) {
        // A cancellation from outside the loop is still on its way, with a bare pointer to the
        // signal: it was posted before this, so it arrives before the signal goes.
        asio::post(executor, [kept = *signal] {});
        signals.erase(signal);
        if (signals.empty()) allEnded.cancel();
        if (error == nullptr || isAbandoned) return;
        try {
            std::rethrow_exception(error);
        } catch (const std::exception& failure) {
            if (!isCancellation(failure)) onFailure(name, failure);
        }
    }
};

namespace {

/// Left to itself, a coroutine that is spawned on the core thread begins inside the spawning call.
Task<void> beginAtNextTurn(Task<void> task) {
    co_await asio::post(asio::use_awaitable);
    co_await std::move(task);
}

}  // namespace

TaskGroup::TaskGroup(asio::any_io_executor executor, FailureHandler onFailure)
    : state(std::make_shared<State>(std::move(executor), std::move(onFailure))) {
}

TaskGroup::~TaskGroup() {
    state->isAbandoned = true;
    cancel();
}

void TaskGroup::spawn(std::string name, Task<void> task) {
    const auto signal =
        state->signals.insert(state->signals.end(), std::make_shared<asio::cancellation_signal>());
    auto whenEnded = [owner = state, signal, name = std::move(name)](std::exception_ptr error) {
        owner->ended(name, signal, error);
    };
    asio::co_spawn(state->executor, beginAtNextTurn(std::move(task)),
                   asio::bind_cancellation_slot((*signal)->slot(), std::move(whenEnded)));
}

void TaskGroup::cancel() {
    state->cancel();
}

Task<void> TaskGroup::join() {
    const std::shared_ptr<State> kept = state;
    const bool threwBefore = co_await asio::this_coro::throw_if_cancelled();
    co_await asio::this_coro::throw_if_cancelled(false);
    bool wasCancelled = false;
    while (!kept->signals.empty()) {
        boost::system::error_code ignored;
        auto token = asio::redirect_error(asio::use_awaitable, ignored);
        if (wasCancelled) {
            // From here on only the tasks' own ends wake this wait.
            auto deaf = asio::bind_cancellation_slot(asio::cancellation_slot(), token);
            co_await kept->allEnded.async_wait(deaf);
            continue;
        }
        co_await kept->allEnded.async_wait(token);
        const auto cancellation = co_await asio::this_coro::cancellation_state;
        wasCancelled = cancellation.cancelled() != asio::cancellation_type::none;
        if (wasCancelled) kept->cancel();
    }
    co_await asio::this_coro::throw_if_cancelled(threwBefore);
    if (wasCancelled) throwCancellation();
}

std::size_t TaskGroup::running() const {
    return state->signals.size();
}

}  // namespace orv
