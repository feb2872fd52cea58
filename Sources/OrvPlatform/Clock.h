#pragma once

#include <chrono>

#include "OrvPlatform/Task.h"

namespace orv {

using WallTime = std::chrono::system_clock::time_point;
using MonotonicTime = std::chrono::steady_clock::time_point;

/// Every look at the time and every wait of the agent goes through here, so that tests drive both.
class Clock {
public:
    virtual ~Clock() = default;

    virtual WallTime now() const = 0;

    /// For durations: never set back.
    virtual MonotonicTime monotonicNow() const = 0;

    /// Returns after the duration; at once, but not before other ready work had its turn, when it
    /// is zero or negative. Throws the cancellation error when the task is cancelled meanwhile.
    virtual Task<void> sleepFor(std::chrono::nanoseconds duration) = 0;
};

/// The machine's own clocks.
class SystemClock final : public Clock {
public:
    WallTime now() const override;
    MonotonicTime monotonicNow() const override;
    Task<void> sleepFor(std::chrono::nanoseconds duration) override;
};

}  // namespace orv
