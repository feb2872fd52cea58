#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/ViewerState.h"

namespace orv {

/// The facts by which the device is known; cheap to read.
struct DeviceFacts {
    std::string deviceUid;
    std::string hostname;
    std::optional<std::string> loggedInUser;
};

/// What the service asks of the inventory. Nothing here fails: a fact that cannot be read has the
/// fallback of its key.
class AuditCollecting {
public:
    virtual ~AuditCollecting() = default;

    /// The whole inventory; takes seconds, because it runs the system's tools.
    virtual Task<Json> collect() = 0;

    /// The small body of every heartbeat, without the expensive sources.
    virtual Task<Json> heartbeatPayload(ViewerState state) = 0;

    virtual DeviceFacts deviceFacts() const = 0;
};

}  // namespace orv
