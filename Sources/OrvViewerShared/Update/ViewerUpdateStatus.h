#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"

namespace orv {

/// How far an update has come, as the daemon and the updater script write it and the menu-bar
/// application shows it. The keys of the file are the fields' names; absent fields are left out.
///
/// | phase         | what it says                                    | counts as abandoned after |
/// |---------------|-------------------------------------------------|---------------------------|
/// | "queued"      | handed to the updater job                       | 180 s                     |
/// | "checking"    | the server is asked                             | 300 s                     |
/// | "downloading" | a newer version was found, or is being fetched  | 1200 s                    |
/// | "installing"  | the installer is at work                        | 1200 s                    |
/// | "no_update"   | nothing newer                                   | never                     |
/// | "installed"   | the new version runs                            | never                     |
/// | "failed"      | the old version runs                            | never                     |
struct ViewerUpdateStatus {
    std::string phase;
    std::string message;         // in Polish, for the person at the Mac
    std::string currentVersion;  // of the running agent
    std::optional<std::string> availableVersion;
    WallTime updatedAt;  // whole seconds in the file
    std::optional<std::string> logPath;

    bool operator==(const ViewerUpdateStatus&) const = default;
};
void to_json(Json& out, const ViewerUpdateStatus& status);
/// Throws DecodingError naming the key that is wrong.
void from_json(const Json& in, ViewerUpdateStatus& status);

/// Somebody asks for an update check from the menu bar.
struct ViewerUpdateRequest {
    std::string id;  // an upper-case UUID
    WallTime requestedAt;
    std::string currentVersion;  // of whoever asks

    bool operator==(const ViewerUpdateRequest&) const = default;
};
void to_json(Json& out, const ViewerUpdateRequest& request);
/// Throws DecodingError naming the key that is wrong.
void from_json(const Json& in, ViewerUpdateRequest& request);

/// Whether whoever was to bring the update further has given up without saying so. The age an
/// allowance ends with is not yet too old; a time in the future is young.
bool isStale(const ViewerUpdateStatus& status, WallTime now);

/// Whether an update is under way: checking, downloading or installing, and not stale.
bool isRunning(const ViewerUpdateStatus& status, WallTime now);

}  // namespace orv
