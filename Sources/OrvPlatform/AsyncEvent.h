#pragma once

#include <boost/asio/steady_timer.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// Lets coroutines wait for a change that others announce. Whoever waits looks at the facts before
/// and after: a change announced while nobody waited is not remembered.
///
///     while (queue.empty()) co_await changed.wait();
///
/// To be used on the core thread only; it must outlive those that wait.
class AsyncEvent {
public:
    explicit AsyncEvent(const asio::any_io_executor& executor);

    /// Returns after the next notify(). Throws the cancellation error when the task is cancelled.
    Task<void> wait();

    /// Wakes all that wait.
    void notify() { never.cancel(); }

private:
    asio::steady_timer never;  // never expires: only cancelling it wakes anyone
};

}  // namespace orv
