#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "OrvPlatform/Task.h"

namespace orv {

/// Threads for blocking or heavy work, started with the first piece of work (an idle agent that
/// never needed one has none).
class WorkerPool {
public:
    /// Without threads the work is done at once, by the caller: for tests that drive the time.
    explicit WorkerPool(unsigned threadCount = 2);
    /// Waits for the work that has begun; work that has not begun is dropped, and whoever waits
    /// for it is never resumed. The loop that work returns to must outlive the pool.
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Runs the plain function on a worker and returns its value, or throws what it threw, back
    /// on the caller's executor. The function owns its inputs and touches no agent state; it is
    /// destroyed on the caller's thread. Work that has begun cannot be interrupted: when the task
    /// is cancelled meanwhile, the cancellation error is thrown after the work has ended, and its
    /// value is lost.
    template <typename Function>
    Task<std::invoke_result_t<Function>> run(Function function);

private:
    Task<void> runErased(std::function<void()> work);

    struct State;
    std::unique_ptr<State> state;
};

template <typename Function>
Task<std::invoke_result_t<Function>> WorkerPool::run(Function function) {
    using Value = std::invoke_result_t<Function>;
    // The frame keeps the function, so that a worker never holds its last owner.
    const auto owned = std::make_shared<Function>(std::move(function));
    if constexpr (std::is_void_v<Value>) {
        std::function<void()> work = [owned] { (*owned)(); };
        co_await runErased(std::move(work));
    } else {
        const auto result = std::make_shared<std::optional<Value>>();
        std::function<void()> work = [result, owned] { result->emplace((*owned)()); };
        co_await runErased(std::move(work));
        co_return std::move(**result);
    }
}

}  // namespace orv
