#include "OrvViewerShared/Update/UpdateCheck.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

Json notStarted(const char* why, const std::optional<std::string>& availableVersion) {
    Json result{{"platform", "macos"},
                {"current_version", MacViewerBuildInfo::version},
                {"update_started", false},
                {"reason", why}};
    if (availableVersion) result["available_version"] = *availableVersion;
    return result;
}

/// The digits without leading zeros, so that longer means greater; empty for 0.
std::string_view numberOf(std::string_view piece) {
    if (piece.find_first_not_of("0123456789") != std::string_view::npos) return {};
    return piece.substr(std::min(piece.find_first_not_of('0'), piece.size()));
}

std::vector<std::string_view> numbersOf(std::string_view version) {
    std::vector<std::string_view> numbers;
    while (!version.empty()) {
        const std::string_view piece = version.substr(0, version.find('.'));
        if (!piece.empty()) numbers.push_back(numberOf(piece));
        version.remove_prefix(std::min(piece.size() + 1, version.size()));
    }
    return numbers;
}

bool isWanted(const std::string& offered, const std::optional<std::string>& requesterVersion) {
    return isVersion(offered, MacViewerBuildInfo::version) ||
           (requesterVersion && isVersion(offered, *requesterVersion));
}

}  // namespace

bool isVersion(std::string_view candidate, std::string_view newerThan) {
    std::vector<std::string_view> ours = numbersOf(candidate);
    std::vector<std::string_view> others = numbersOf(newerThan);
    const std::size_t length = std::max(ours.size(), others.size());
    ours.resize(length);
    others.resize(length);
    for (std::size_t i = 0; i < length; ++i) {
        if (ours[i].size() != others[i].size()) return ours[i].size() > others[i].size();
        if (ours[i] != others[i]) return ours[i] > others[i];
    }
    return false;
}

ViewerUpdateStatus updateStatus(const char* phase, std::string message,
                                std::optional<std::string> availableVersion, WallTime now) {
    return {phase, std::move(message),  MacViewerBuildInfo::version, std::move(availableVersion),
            now,   paths::updateLogPath};
}

Task<Json> UpdateCheck::checkForClientUpdate(std::string reason,
                                             std::optional<std::string> requesterVersion) {
    if (requesterVersion) requesterVersion = trimmed(*requesterVersion);
    if (requesterVersion && requesterVersion->empty()) requesterVersion.reset();

    std::optional<ViewerUpdateStatus> status = parts.coordinator.readStatus();
    if (status && isRunning(*status, parts.clock.now())) {
        // Its time stays, so that asking again and again does not keep a dead update alive.
        status->message = "Aktualizacja jest już w toku.";
        status->currentVersion = MacViewerBuildInfo::version;
        status->logPath = paths::updateLogPath;
        parts.coordinator.writeStatus(*status);
        co_return notStarted("update already in progress", status->availableVersion);
    }

    writeStatus("checking", "Sprawdzam dostępność aktualizacji...");
    ViewerUpdateManifest manifest = co_await parts.apiClient.updateManifest(
        "macos", OrvDeskApiClient::currentArchitecture(), MacViewerBuildInfo::version, "stable");
    if (manifest.version.empty()) {
        writeStatus("no_update", "Serwer nie wystawił paczki aktualizacji dla macOS.");
        co_return notStarted("no macOS update manifest", std::nullopt);
    }
    if (!isWanted(manifest.version, requesterVersion)) {
        writeStatus("no_update", "Nie znaleziono nowszej wersji oprogramowania.");
        co_return notStarted("already up to date", manifest.version);
    }
    co_return co_await start(std::move(manifest), std::move(reason), std::move(requesterVersion));
}

Task<Json> UpdateCheck::start(ViewerUpdateManifest manifest, std::string reason,
                              std::optional<std::string> requesterVersion) {
    writeStatus("downloading",
                fmt::format("Znaleziono wersję {}. Pobieram aktualizację...", manifest.version),
                manifest.version);
    try {
        co_return co_await parts.scheduling.scheduleSelfUpdate(
            std::move(manifest), std::move(reason), std::move(requesterVersion));
    } catch (const std::exception& error) {
        if (!isCancellation(error)) {
            writeStatus("failed", viewerErrorMessage(error, "uruchomić aktualizację"));
        }
        throw;
    }
}

void UpdateCheck::writeStatus(const char* phase, std::string message,
                              std::optional<std::string> availableVersion) const {
    parts.coordinator.writeStatus(
        updateStatus(phase, std::move(message), std::move(availableVersion), parts.clock.now()));
}

}  // namespace orv
