#include "OrvViewerShared/Update/UpdaterJob.h"

#include <chrono>
#include <sys/stat.h>
#include <utility>
#include <variant>

#include <fmt/format.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Folder.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/PropertyList.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/Update/UpdaterScript.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

constexpr mode_t onlyRootWritesFolder = 0755;
constexpr mode_t onlyRoot = 0700;
constexpr mode_t onlyRootWrites = 0644;  // launchd takes no job file that others could have written

// launchd refuses a job for as long as its predecessor is still ending.
constexpr int bootstrapAttempts = 5;
constexpr std::chrono::seconds bootstrapPause{1};
constexpr std::chrono::seconds launchctlTimeout{30};

Json jobFile() {
    return {{"Label", UpdaterJob::label},
            {"ProgramArguments", {"/bin/bash", paths::updaterScriptPath}},
            {"RunAtLoad", true},
            {"ProcessType", "Background"},
            {"AbandonProcessGroup", true},
            {"StandardOutPath", paths::updateLogPath},
            {"StandardErrorPath", paths::updateLogPath}};
}

}  // namespace

Task<Json> UpdaterJob::scheduleSelfUpdate(ViewerUpdateManifest manifest, std::string reason,
                                          std::optional<std::string> requesterVersion) {
    const ValidatedUpdatePackage package = validatedUpdatePackage(manifest, parts.serverBaseUrl);
    writeFiles(manifest, package, reason);
    const std::optional<ViewerUpdateStatus> before = parts.coordinator.readStatus();
    co_await startJob();
    // The script may have been quicker and be at work, or already at its end.
    if (parts.coordinator.readStatus() == before) writeQueuedStatus(manifest.version);
    parts.logger.info(
        fmt::format("Wsparo Brenvox macOS self-update scheduled. version={} reason={}",
                    manifest.version, reason));
    co_return startedResult(manifest, package, reason, requesterVersion);
}

void UpdaterJob::writeQueuedStatus(const std::string& version) const {
    std::string message = fmt::format(
        "Aktualizacja do wersji {} została przekazana do niezależnej usługi systemowej.", version);
    parts.coordinator.writeStatus(
        updateStatus("queued", std::move(message), version, parts.clock.now()));
}

Json UpdaterJob::startedResult(const ViewerUpdateManifest& manifest,
                               const ValidatedUpdatePackage& package, const std::string& reason,
                               const std::optional<std::string>& requesterVersion) const {
    Json result{{"platform", "macos"},
                {"current_version", MacViewerBuildInfo::version},
                {"available_version", manifest.version},
                {"update_started", true},
                {"sha256", package.sha256},
                {"size_bytes", package.sizeBytes},
                {"reason", reason},
                {"log_path", paths::updateLogPath},
                {"started_at", iso8601(parts.clock.now())}};
    if (requesterVersion) result["requester_version"] = *requesterVersion;
    return result;
}

void UpdaterJob::writeFiles(const ViewerUpdateManifest& manifest,
                            const ValidatedUpdatePackage& package,
                            const std::string& reason) const {
    const SystemRoot& root = parts.root;
    parts.coordinator.ensureRuntimeDirectory();
    ensureFolder(root.locate(paths::updatesDirectory), onlyRootWritesFolder);
    // launchd opens the log before anything of ours runs.
    createDirectories(root.locate(paths::logDirectory));

    const std::string script =
        updaterScript({package.url.text(), package.sha256, package.sizeBytes,
                       MacViewerBuildInfo::version, manifest.version, reason});
    if (!isValidUtf8(script)) {
        throw ViewerError::unsupported("Could not encode the macOS updater script.");
    }
    writeFileAtomically(root.locate(paths::updaterScriptPath), script, {.mode = onlyRoot});
    writeFileAtomically(root.locate(paths::updaterJobPath), xmlPropertyList(jobFile()),
                        {.mode = onlyRootWrites});
}

Task<void> UpdaterJob::startJob() {
    std::vector<std::string> leftover{"bootout", fmt::format("system/{}", label)};
    co_await launchctl(std::move(leftover));
    for (int attempt = 1; attempt <= bootstrapAttempts; ++attempt) {
        std::vector<std::string> bootstrap{"bootstrap", "system", paths::updaterJobPath};
        const bool isStarted = co_await launchctl(std::move(bootstrap));
        if (isStarted) co_return;
        if (attempt < bootstrapAttempts) co_await parts.clock.sleepFor(bootstrapPause);
    }
    throw ViewerError::unsupported("The independent macOS updater service could not be started.");
}

/// Whether it ended with status 0.
Task<bool> UpdaterJob::launchctl(std::vector<std::string> arguments) {
    ProcessRequest request;
    request.executable = parts.root.locate("/bin/launchctl");
    request.arguments = std::move(arguments);
    request.timeout = launchctlTimeout;
    try {
        const ProcessResult result = co_await parts.processes.run(std::move(request));
        co_return !result.timedOut && result.end == ProcessEnd(Exited{0});
    } catch (const LaunchError&) {
        co_return false;
    }
}

}  // namespace orv
