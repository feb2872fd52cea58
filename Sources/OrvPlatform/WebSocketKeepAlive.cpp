#include "OrvPlatform/WebSocketKeepAlive.h"

#include <algorithm>

namespace orv {

KeepAliveStep nextKeepAliveStep(const KeepAliveFacts& facts, const KeepAliveTimes& times,
                                MonotonicTime now) {
    using Action = KeepAliveStep::Action;
    auto nextLook = MonotonicTime::max();
    if (facts.writingSince) {
        const auto deadline = *facts.writingSince + times.deadAfter;
        if (now >= deadline) return {Action::giveUpWriting, {}};
        nextLook = std::min(nextLook, deadline);
    }
    if (!facts.isReadingPaused) {
        const auto deadline = facts.lastArrival + times.deadAfter;
        if (now >= deadline) return {Action::giveUpSilence, {}};
        nextLook = std::min(nextLook, deadline);
    }
    auto nextPing = std::max(facts.lastArrival, facts.lastPing) + times.pingAfter;
    // An answer arrives a little after its ping; waking once more for that moment is not worth it.
    const bool isPingDue = now >= nextPing - times.pingAfter / 10;
    if (isPingDue) nextPing = now + times.pingAfter;
    nextLook = std::min(nextLook, nextPing);
    return {isPingDue ? Action::ping : Action::wait, nextLook - now};
}

}  // namespace orv
