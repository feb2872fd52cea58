#include "WsparoCompanion/UpdateFollower.h"

#include <utility>

#include "WsparoCompanion/UpdateTexts.h"

namespace orv::companion {

UpdateFollower::UpdateFollower(std::optional<ViewerUpdateStatus> statusBefore,
                               MonotonicTime requestedAt, std::chrono::seconds allowed)
    : before(std::move(statusBefore)), lastChange(requestedAt), patience(allowed), last(before) {
}

UpdateFollower::Step UpdateFollower::look(const Sighting& sighting, MonotonicTime now) {
    if (!wasTaken) {
        if (sighting.requestWaits) {
            if (now - lastChange > patience) return NotTaken{};
            return Waiting{};
        }
        wasTaken = true;
        lastChange = now;
    }
    if (sighting.status != last) {
        last = sighting.status;
        lastChange = now;
    }
    const bool isNews = sighting.status && sighting.status != before;
    if (isNews && isFinal(*sighting.status)) return Ended{*sighting.status};
    // What is under way becomes stale by itself, which ends it as failed.
    if (sighting.status && !isFinal(*sighting.status)) return Progress{*sighting.status};
    if (now - lastChange > silenceAllowed) return NoNews{};
    return Waiting{};
}

}  // namespace orv::companion
