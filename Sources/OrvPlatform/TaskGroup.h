#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "OrvPlatform/Task.h"

namespace orv {

/// Coroutines that run side by side and that one owner cancels and joins.
///
///     TaskGroup group(executor, report);
///     group.spawn("heartbeat loop", heartbeatLoop());
///     ...
///     group.cancel();
///     co_await group.join();
///
/// A task that ends by cancellation ends quietly; any other error goes to the handler, with the
/// task's name. To be used on the core thread only. Destroying the group cancels what still runs
/// without waiting for it; the handler is not called any more.
class TaskGroup {
public:
    using FailureHandler = std::function<void(const std::string& taskName, const std::exception&)>;

    TaskGroup(asio::any_io_executor executor, FailureHandler onFailure);
    ~TaskGroup();
    TaskGroup(const TaskGroup&) = delete;
    TaskGroup& operator=(const TaskGroup&) = delete;

    /// Starts the task at the next turn of the executor, unless it is cancelled before.
    void spawn(std::string name, Task<void> task);

    /// Asks every running task to stop; each ends at its current or next wait.
    void cancel();

    /// Returns when no task of the group runs. When the waiting task itself is cancelled, the
    /// group's tasks are cancelled too and are still waited for; then the cancellation error is
    /// thrown. Several tasks may wait.
    Task<void> join();

    std::size_t running() const;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orv
