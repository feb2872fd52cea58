#include <time.h>

#include "OrvPlatform/SystemWake.h"

namespace orv {

// The first clock goes on while the Mac sleeps, the second stands still; otherwise both count the
// same ticks, so that nothing but a sleep moves them apart. Their order keeps a thread that loses
// the processor in between from looking like a sleep.
std::chrono::nanoseconds timeAsleep() {
    const auto sinceStart = clock_gettime_nsec_np(CLOCK_MONOTONIC_RAW);
    const auto awake = clock_gettime_nsec_np(CLOCK_UPTIME_RAW);
    return std::chrono::nanoseconds(sinceStart) - std::chrono::nanoseconds(awake);
}

}  // namespace orv
