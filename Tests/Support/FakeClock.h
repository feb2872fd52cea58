#pragma once

#include <chrono>
#include <list>
#include <vector>

#include <boost/asio/steady_timer.hpp>

#include "OrvPlatform/Clock.h"

namespace orv {

/// A clock that stands still until a test moves it. Sleepers wake in the order of their times;
/// equal times in the order in which they went to sleep.
class FakeClock final : public Clock {
public:
    /// Begins at 2026-03-01T09:15:02Z.
    FakeClock();

    WallTime now() const override { return wall; }
    MonotonicTime monotonicNow() const override { return MonotonicTime(elapsed); }
    Task<void> sleepFor(std::chrono::nanoseconds duration) override;

    /// Every sleep that was asked for, in order.
    std::vector<std::chrono::nanoseconds> sleeps;

    /// Somebody sets the machine's clock; durations go on as before.
    void setWallTime(WallTime time) { wall = time; }

    /// The machine sleeps: time goes by and nobody wakes. Whose time came meanwhile is late.
    void sleepMachine(std::chrono::nanoseconds span) { moveTo(elapsed + span); }

    std::size_t sleepers() const { return sleeping.size(); }

    /// Moves to the next sleeper's time and wakes it. False when nobody sleeps, or nobody wakes
    /// within the limit: then the time has moved to the limit.
    bool wakeNext(std::chrono::nanoseconds limit = std::chrono::nanoseconds::max());

private:
    struct Sleeper {
        std::chrono::nanoseconds wakesAt;
        boost::asio::steady_timer timer;
        bool isWoken = false;
    };

    void moveTo(std::chrono::nanoseconds time);

    WallTime wall;
    std::chrono::nanoseconds elapsed{0};
    std::list<Sleeper*> sleeping;
};

}  // namespace orv
