#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// What the daemon remembers across restarts. The keys of the file are the fields' names; absent
/// fields are left out. The companion application reads the file too.
struct ViewerState {
    std::optional<std::string> deviceUid;
    std::optional<std::string> supportId;
    std::optional<std::string> hostname;
    std::optional<WallTime> lastInventoryAt;
    std::optional<WallTime> lastHeartbeatAt;
    std::optional<std::string> deviceToken;  // owned by DeviceTokenStore
    std::optional<AgentConnectionIssue> connectionIssue;
    std::optional<std::string> connectionMessage;
    std::optional<WallTime> lastConnectionErrorAt;

    void recordProblem(AgentConnectionIssue issue, WallTime now);
    void clearProblem();

    bool operator==(const ViewerState&) const = default;
};

void to_json(Json& out, const ViewerState& state);
/// Throws DecodingError naming the key that is wrong.
void from_json(const Json& in, ViewerState& state);

/// The state file. Each save replaces it as a whole and the last writer wins, so a reader never
/// sees half a file; whoever changes fields loads, changes and saves without a suspension between.
class ViewerStateFile {
public:
    ViewerStateFile(SystemRoot root, const ViewerLogger& logger);

    /// The stored state; the empty state when there is no file, or (logged) when it cannot be
    /// read. A state found only at the predecessor's place is copied to ours.
    ViewerState load() const;

    /// A failure is logged; the old file then stays as it was.
    void save(const ViewerState& state) const;

private:
    SystemRoot root;
    const ViewerLogger& logger;
};

/// Writes a failure's classified problem into the state file, where the companion application
/// shows it. For those who hold no copy of the state themselves.
class AgentConnectionState {
public:
    AgentConnectionState(const ViewerStateFile& file, const Clock& clock)
        : stateFile(file), clock(clock) {}

    AgentConnectionIssue record(const std::exception& error) const;

private:
    const ViewerStateFile& stateFile;
    const Clock& clock;
};

}  // namespace orv
