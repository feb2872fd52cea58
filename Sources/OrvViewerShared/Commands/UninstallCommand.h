#pragma once

#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// The command string for bash (the Mac's 3.2) that takes the agent and its predecessor off the
/// Mac. It returns at once; the work goes on in the background, in the session that it is started
/// in. With a relocated root it only ever touches what is below that.
std::string uninstallJob(const SystemRoot& root);

/// Takes the agent off the Mac on a consultant's word.
class UninstallCommand {
public:
    struct Parts {
        ProcessRunner& processes;
        SystemRoot root;
        const Clock& clock;
        const ViewerLogger& logger;
    };

    explicit UninstallCommand(Parts parts) : parts(std::move(parts)) {}

    /// Starts the job, which leaves us the time to report and then stops us. Throws LaunchError.
    Task<Json> startSelfUninstall();

private:
    Parts parts;
};

}  // namespace orv
