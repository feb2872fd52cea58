#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/Update/ViewerUpdateStatus.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// The three small files through which the daemon, the menu-bar application and the updater script
/// talk about updates: the request, the status, and when the daemon last checked by itself.
///
/// They lie in a folder where every local user may write, so whatever stands at their places is
/// read without following links and without blocking, must be a regular file and small, and is
/// replaced, never written into. There is no lock: whole files take each other's place, and the
/// last writer wins. Nothing is remembered between the calls.
class ViewerUpdateCoordinator {
public:
    struct Parts {
        SystemRoot root;
        const Clock& clock;
        const ViewerLogger& logger;
    };

    explicit ViewerUpdateCoordinator(Parts parts) : parts(std::move(parts)) {}

    /// Makes the runtime folder, mode 1777. Throws FileError, also for a link in its place.
    void ensureRuntimeDirectory() const;

    /// What the menu-bar application does when somebody asks for a check. Throws FileError.
    ViewerUpdateRequest requestManualCheck() const;

    /// The request that waits, if there is one that can be read. Whatever stood there is gone
    /// afterwards, so that it is acted on once.
    std::optional<ViewerUpdateRequest> consumeManualRequest() const;

    /// The last status, if there is one that can be read. A stale one is first replaced by
    /// "failed", so that an update that was cut off does not look alive forever.
    std::optional<ViewerUpdateStatus> readStatus() const;

    /// Readable and writable for everybody (mode 666). A failure is logged.
    void writeStatus(const ViewerUpdateStatus& status) const;

    /// Whether the day's automatic check is due: none was claimed within the last 24 hours. Then it
    /// is now claimed, even when the claim cannot be written, which is logged. A claim dated in the
    /// future (the clock was set back) counts as recent. False, too, without a runtime folder.
    bool claimDailyAutomaticCheck(WallTime now) const;

private:
    std::optional<Json> readSmallFile(const char* path) const;
    bool hasRuntimeDirectory() const;
    void replaceFile(const char* path, const Json& content, mode_t mode,
                     const char* complaint) const;

    Parts parts;
};

}  // namespace orv
