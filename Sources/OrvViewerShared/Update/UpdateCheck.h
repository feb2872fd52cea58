#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"

namespace orv {

/// Starts the installation of what a manifest offers, outside this process.
class UpdateScheduling {
public:
    virtual ~UpdateScheduling() = default;

    /// Returns what is told about the update once it has been started. Throws ViewerError for a
    /// manifest that is refused and for an updater that cannot be started, FileError.
    virtual Task<Json> scheduleSelfUpdate(ViewerUpdateManifest manifest, std::string reason,
                                          std::optional<std::string> requesterVersion) = 0;
};

/// Decides whether this Mac is to update itself.
class UpdateCheck {
public:
    struct Parts {
        const ViewerUpdateCoordinator& coordinator;
        OrvDeskApiClient& apiClient;
        UpdateScheduling& scheduling;
        const Clock& clock;
    };

    explicit UpdateCheck(Parts parts) : parts(parts) {}

    /// Asks the server for the newest version and starts the update to it when it is newer than
    /// this agent or, if given, than whoever asks (a menu-bar application may be older than the
    /// daemon, and then gets the daemon's own version again). Progress goes to the status file.
    ///
    /// Returns what scheduleSelfUpdate does, or why no update was started. Throws what asking the
    /// server throws, the status being left at "checking", and what scheduleSelfUpdate throws.
    Task<Json> checkForClientUpdate(std::string reason,
                                    std::optional<std::string> requesterVersion);

private:
    void writeStatus(const char* phase, std::string message,
                     std::optional<std::string> availableVersion = std::nullopt) const;
    Task<Json> start(ViewerUpdateManifest manifest, std::string reason,
                     std::optional<std::string> requesterVersion);

    Parts parts;
};

/// A status of this agent, dated now and naming the update log.
ViewerUpdateStatus updateStatus(const char* phase, std::string message,
                                std::optional<std::string> availableVersion, WallTime now);

/// Compares "1.2.3" number by number, of any size; what is missing or no plain decimal number
/// counts as 0, and empty pieces ("1..2") are left out. Equal versions are not newer.
bool isVersion(std::string_view candidate, std::string_view newerThan);

}  // namespace orv
