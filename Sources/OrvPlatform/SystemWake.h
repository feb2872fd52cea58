#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace orv {

/// For how long the machine has been asleep, all its sleeps since it started taken together.
/// Setting the machine's clock does not change it.
std::chrono::nanoseconds timeAsleep();

/// Notices that the machine was asleep. It keeps no timer of its own, which would wake the
/// processor for nothing: a loop that runs every few seconds anyway asks it, and is asked that long
/// after the machine's waking at the latest, for what a sleep interrupts goes on where it stopped.
class SystemWake {
public:
    /// Shorter ones do no harm to connections.
    static constexpr std::chrono::seconds shortestSleep{2};

    using Asleep = std::function<std::chrono::nanoseconds()>;

    explicit SystemWake(Asleep asleep = timeAsleep);

    /// How long the machine slept since the last call, or since construction; nothing when it did
    /// not sleep long enough to matter.
    std::optional<std::chrono::nanoseconds> sleptSinceLastLook();

private:
    Asleep asleep;
    std::chrono::nanoseconds known;
};

}  // namespace orv
