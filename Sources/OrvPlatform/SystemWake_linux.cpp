#include <time.h>

#include "OrvPlatform/SystemWake.h"

namespace orv {

namespace {

std::chrono::nanoseconds read(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

// The first clock goes on while the machine sleeps, the second stands still. Their order keeps a
// thread that loses the processor in between from looking like a sleep.
std::chrono::nanoseconds timeAsleep() {
    const std::chrono::nanoseconds sinceStart = read(CLOCK_BOOTTIME);
    return sinceStart - read(CLOCK_MONOTONIC);
}

}  // namespace orv
