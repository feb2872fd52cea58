#include "OrvPlatform/SystemWake.h"

#include <utility>

namespace orv {

SystemWake::SystemWake(Asleep given) : asleep(std::move(given)), known(asleep()) {
}

std::optional<std::chrono::nanoseconds> SystemWake::sleptSinceLastLook() {
    // Short sleeps add up: several naps are as bad for a connection as one long one.
    const std::chrono::nanoseconds total = asleep();
    if (total - known < shortestSleep) return std::nullopt;
    return total - std::exchange(known, total);
}

}  // namespace orv
