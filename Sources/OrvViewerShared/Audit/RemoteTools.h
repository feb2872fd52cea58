#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// The home folder in the answer of "/usr/bin/dscl . -read /Users/NAME NFSHomeDirectory", which
/// puts a path with blanks on a line of its own.
std::optional<std::string> parseHomeDirectory(std::string_view answer);

/// Whether "/bin/launchctl print" says that the service runs: by its own state, not its job's.
bool isServiceRunning(std::string_view answer);

/// Whether the name can be part of a record's path and an argument of a tool.
bool isPlainUserName(std::string_view name);

/// "online", "running_no_id", "installed", "installed_no_id" or "not_installed".
std::string rustDeskStatus(bool isInstalled, bool isRunning, bool hasId);

/// What is known of the remote-desktop tools that a consultant may use instead of ours.
struct RemoteToolProbes {
    Json anyDesk = Json::object();
    Json teamViewer = Json::object();
    Json rustDesk = Json::object();

    /// Into the inventory: under both forms of each key.
    void addToInventory(Json& inventory) const;
    /// Into the heartbeat, which leaves out what is unknown.
    void addToHeartbeat(Json& heartbeat) const;
};

/// Looks for the tools' applications, configuration and services. Per-user places are looked at
/// only when somebody is logged in; the files there belong to that user, so a link is not followed.
Task<RemoteToolProbes> probeRemoteTools(AuditRun& run, std::string consoleUser);

}  // namespace orv
