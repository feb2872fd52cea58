#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"

#include <chrono>
#include <string>
#include <sys/stat.h>

#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Folder.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Uuid.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/Update/UpdatePaths.h"

namespace orv {

namespace {

constexpr std::chrono::hours automaticCheckPeriod{24};
constexpr std::uint64_t fileLimitBytes = 64 << 10;
constexpr mode_t everybodyWritesOnlyOwnersRemove = 01777;
constexpr mode_t everybodyReadsAndWrites = 0666;
constexpr mode_t everybodyReads = 0644;

constexpr const char* abandonedMessage =
    "Poprzednia aktualizacja nie zakończyła pracy. Kliknij „Sprawdź teraz”, aby ponowić "
    "aktualizację.";

template <typename Record>
std::optional<Record> decoded(const std::optional<Json>& json) {
    if (!json) return std::nullopt;
    try {
        return json->get<Record>();
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

}  // namespace

void ViewerUpdateCoordinator::ensureRuntimeDirectory() const {
    ensureFolder(parts.root.locate(paths::updateRuntimeDirectory), everybodyWritesOnlyOwnersRemove);
}

ViewerUpdateRequest ViewerUpdateCoordinator::requestManualCheck() const {
    ensureRuntimeDirectory();
    ViewerUpdateRequest request{randomUuid(), parts.clock.now(), MacViewerBuildInfo::version};
    writeFileAtomically(parts.root.locate(paths::updateRequestPath), prettyJson(request));
    return request;
}

std::optional<ViewerUpdateRequest> ViewerUpdateCoordinator::consumeManualRequest() const {
    const std::string place = parts.root.locate(paths::updateRequestPath);
    if (!hasRuntimeDirectory() || !readAttributes(place)) return std::nullopt;
    auto request = decoded<ViewerUpdateRequest>(readSmallFile(paths::updateRequestPath));
    removeEntry(place);
    return request;
}

std::optional<ViewerUpdateStatus> ViewerUpdateCoordinator::readStatus() const {
    auto status = decoded<ViewerUpdateStatus>(readSmallFile(paths::updateStatusPath));
    const WallTime now = parts.clock.now();
    if (!status || !isStale(*status, now)) return status;
    status->phase = "failed";
    status->message = abandonedMessage;
    status->currentVersion = MacViewerBuildInfo::version;
    status->updatedAt = now;
    writeStatus(*status);
    return status;
}

void ViewerUpdateCoordinator::writeStatus(const ViewerUpdateStatus& status) const {
    constexpr const char* complaint = "Update status write failed";
    try {
        ensureRuntimeDirectory();
        replaceFile(paths::updateStatusPath, status, everybodyReadsAndWrites, complaint);
    } catch (const FileError& error) {
        parts.logger.error(error, complaint);
    }
}

bool ViewerUpdateCoordinator::claimDailyAutomaticCheck(WallTime now) const {
    constexpr const char* complaint = "Automatic update check timestamp write failed";
    try {
        ensureRuntimeDirectory();
    } catch (const FileError&) {
        return false;
    }
    const std::optional<Json> stored = readSmallFile(paths::lastAutomaticUpdateCheckPath);
    if (stored && stored->is_string()) {
        const std::optional<WallTime> last = parseIso8601(stored->get<std::string>());
        if (last && now - *last < automaticCheckPeriod) return false;
    }
    try {
        replaceFile(paths::lastAutomaticUpdateCheckPath, Json(iso8601(now)), everybodyReads,
                    complaint);
    } catch (const FileError& error) {
        parts.logger.error(error, complaint);
    }
    return true;
}

/// A real one: what a link leads to is none of ours.
bool ViewerUpdateCoordinator::hasRuntimeDirectory() const {
    const auto folder = readAttributes(parts.root.locate(paths::updateRuntimeDirectory));
    return folder && folder->isDirectory;
}

std::optional<Json> ViewerUpdateCoordinator::readSmallFile(const char* path) const {
    if (!hasRuntimeDirectory()) return std::nullopt;
    try {
        return parseJson(readFile(parts.root.locate(path), fileLimitBytes, Links::refuse));
    } catch (const FileError&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

/// A folder cannot be replaced by a file; one that somebody planted goes, after a line in the log.
void ViewerUpdateCoordinator::replaceFile(const char* path, const Json& content, mode_t mode,
                                          const char* complaint) const {
    const std::string place = parts.root.locate(path);
    const std::string bytes = prettyJson(content);
    const WriteOptions options{.mode = mode};
    try {
        writeFileAtomically(place, bytes, options);
    } catch (const FileError& error) {
        const std::optional<EntryAttributes> obstacle = readAttributes(place);
        if (!obstacle || !obstacle->isDirectory) throw;
        parts.logger.error(error, complaint);
        removeEntry(place);
        writeFileAtomically(place, bytes, options);
    }
}

}  // namespace orv
