#pragma once

#include <chrono>
#include <optional>

#include "OrvPlatform/Clock.h"

namespace orv {

/// How an open connection tells a silent server from a vanished one.
struct KeepAliveTimes {
    std::chrono::nanoseconds pingAfter = std::chrono::seconds(30);  // of silence
    std::chrono::nanoseconds deadAfter = std::chrono::seconds(75);  // of silence, or of one write
};

struct KeepAliveFacts {
    MonotonicTime lastArrival;                  // of anything, an answer to a ping included
    MonotonicTime lastPing;                     // or the opening
    std::optional<MonotonicTime> writingSince;  // while a frame waits for the network to take it
    bool isReadingPaused = false;  // nothing can be heard then, so silence means nothing
};

struct KeepAliveStep {
    enum class Action { wait, ping, giveUpSilence, giveUpWriting };
    Action action = Action::wait;
    std::chrono::nanoseconds waitAfterwards{0};
};

/// What to do now and when to look again. A connection on which nothing but answers to pings
/// arrives is looked at once per ping.
KeepAliveStep nextKeepAliveStep(const KeepAliveFacts& facts, const KeepAliveTimes& times,
                                MonotonicTime now);

}  // namespace orv
