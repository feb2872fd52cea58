#pragma once

#include <chrono>
#include <optional>
#include <variant>

#include "OrvPlatform/Clock.h"
#include "OrvViewerShared/Update/ViewerUpdateStatus.h"

namespace orv::companion {

/// What becomes of a request for an update check, seen from outside: by the request's file, which
/// goes when the agent takes it, and by the status that the agent then writes.
class UpdateFollower {
public:
    struct Sighting {
        std::optional<ViewerUpdateStatus> status;
        bool requestWaits = false;
    };

    struct Waiting {};
    struct Progress {
        ViewerUpdateStatus status;
    };
    struct Ended {
        ViewerUpdateStatus status;
    };
    struct NotTaken {};  // the agent does not run
    struct NoNews {};    // the agent took it and then said nothing
    using Step = std::variant<Waiting, Progress, Ended, NotTaken, NoNews>;

    static constexpr std::chrono::seconds silenceAllowed{90};

    /// The status before the request must differ from whatever is written after it, which its time
    /// sees to unless both are of the same second.
    UpdateFollower(std::optional<ViewerUpdateStatus> before, MonotonicTime requestedAt,
                   std::chrono::seconds patience);

    Step look(const Sighting& sighting, MonotonicTime now);

private:
    std::optional<ViewerUpdateStatus> before;
    MonotonicTime lastChange;
    std::chrono::seconds patience;
    std::optional<ViewerUpdateStatus> last;
    bool wasTaken = false;
};

}  // namespace orv::companion
