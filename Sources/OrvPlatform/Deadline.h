#pragma once

#include <chrono>
#include <optional>
#include <utility>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"

namespace orv {

/// Runs the task to its end, or cancels it when the time is over and waits for its end; whether it
/// ended in time. Throws what the task throws.
Task<bool> finishedWithin(Clock& clock, std::chrono::nanoseconds limit, Task<void> task);

/// The same for a task with a value, which is returned, or nothing when the time was over.
template <typename Value>
Task<std::optional<Value>> finishedWithin(Clock& clock, std::chrono::nanoseconds limit,
                                          Task<Value> task) {
    std::optional<Value> value;
    co_await finishedWithin(clock, limit, keepValue(std::move(task), &value));
    co_return std::move(value);
}

}  // namespace orv
