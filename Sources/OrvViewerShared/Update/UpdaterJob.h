#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/Update/PackageValidation.h"
#include "OrvViewerShared/Update/UpdateCheck.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// Hands an update to a job of launchd, because what installs it must outlive this daemon.
class UpdaterJob final : public UpdateScheduling {
public:
    static constexpr const char* label = "pl.brenvox.wsparo.updater";

    struct Parts {
        SystemRoot root;
        ProcessRunner& processes;
        Clock& clock;
        const ViewerLogger& logger;
        const ViewerUpdateCoordinator& coordinator;
        std::string serverBaseUrl;  // packages come from nowhere else
    };

    explicit UpdaterJob(Parts parts) : parts(std::move(parts)) {}

    /// Writes the updater script and its job file and starts the job, once the manifest's package
    /// has been found acceptable; nothing is written before that. The status is then "queued",
    /// unless the script has already written one of its own.
    Task<Json> scheduleSelfUpdate(ViewerUpdateManifest manifest, std::string reason,
                                  std::optional<std::string> requesterVersion) override;

private:
    void writeFiles(const ViewerUpdateManifest& manifest, const ValidatedUpdatePackage& package,
                    const std::string& reason) const;
    void writeQueuedStatus(const std::string& version) const;
    Json startedResult(const ViewerUpdateManifest& manifest, const ValidatedUpdatePackage& package,
                       const std::string& reason,
                       const std::optional<std::string>& requesterVersion) const;
    Task<void> startJob();
    Task<bool> launchctl(std::vector<std::string> arguments);

    Parts parts;
};

}  // namespace orv
