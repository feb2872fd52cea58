#include "OrvViewerShared/Commands/FileCommands.h"

#include <optional>
#include <string>
#include <utility>

#include "OrvPlatform/Base64.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Commands/CommandError.h"
#include "OrvViewerShared/Commands/DirectoryListing.h"
#include "OrvViewerShared/Commands/FileContent.h"
#include "OrvViewerShared/Commands/Payload.h"

namespace orv {

namespace {

constexpr std::int64_t mebibyte = std::int64_t{1} << 20;

std::string pathFrom(const Json& payload, const char* key, const char* defaultPath) {
    return trimmed(textIfPresent(payload, key).value_or(defaultPath));
}

/// A relative path starts where the daemon does: at the root.
std::string absolutePath(const std::string& path) {
    return path.starts_with('/') ? path : "/" + path;
}

/// Moves the text out of the payload, which may be tens of megabytes.
std::optional<std::string> takeText(Json& payload, const char* key) {
    const auto found = payload.find(key);
    if (found == payload.end() || !found->is_string()) return std::nullopt;
    return std::move(found->get_ref<std::string&>());
}

[[noreturn]] void throwTargetAndContentRequired() {
    throw fileTransferError(400, "Target path and content are required.");
}

/// Runs the work on a worker; an error's path is the Mac's when it reaches the consultant.
template <typename Work>
auto onWorker(WorkerPool& workers, const SystemRoot& root, Work work) {
    return workers.run([root, work = std::move(work)] {
        try {
            return work();
        } catch (const FileError& error) {
            throw FileError(error.reason(), root.shown(error.path()));
        }
    });
}

}  // namespace

Task<CommandResult> FileCommands::listFiles(Json payload) {
    std::string path = pathFrom(payload, "path", "/");
    const auto maxItems =
        static_cast<std::size_t>(payloadInt(payloadValue(payload, "max_items"), 500, 10, 2000));
    auto list = [root = parts.root, path = std::move(path), maxItems] {
        return asksForRoots(path) ? rootsListing(root, maxItems)
                                  : directoryListing(root, path, maxItems);
    };
    Json result = co_await onWorker(parts.workers, parts.root, std::move(list));
    result["collected_at"] = iso8601(parts.clock.now());
    co_return CommandResult(std::move(result));
}

Task<CommandResult> FileCommands::downloadFile(Json payload) {
    std::string path = pathFrom(payload, "path", "");
    if (path.empty()) throw fileTransferError(400, "Path cannot be empty.");
    const auto maximumBytes = static_cast<std::uint64_t>(
        payloadInt(payloadValue(payload, "max_bytes"), 10 * mebibyte, 1024, 25 * mebibyte));
    auto download = [root = parts.root, path = std::move(path), maximumBytes,
                     now = iso8601(parts.clock.now())] {
        return downloadResult(root, absolutePath(path), maximumBytes, now);
    };
    std::string result = co_await onWorker(parts.workers, parts.root, std::move(download));
    co_return CommandResult(SerializedJson{std::move(result)});
}

Task<CommandResult> FileCommands::uploadFile(Json payload) {
    const std::string givenPath = pathFrom(payload, "target_path", "");
    std::optional<std::string> encoded = takeText(payload, "content_base64");
    if (givenPath.empty() || !encoded) throwTargetAndContentRequired();
    const std::string path = absolutePath(givenPath);
    const UploadOptions options{payloadBool(payloadValue(payload, "overwrite"), false),
                                payloadBool(payloadValue(payload, "create_directories"), true)};
    auto upload = [root = parts.root, path, encoded = std::move(*encoded), options] {
        const std::optional<std::string> content = decodeBase64(encoded);
        if (!content) throwTargetAndContentRequired();
        placeFile(root, path, *content, options);
        return content->size();
    };
    const std::size_t sizeBytes = co_await onWorker(parts.workers, parts.root, std::move(upload));
    co_return CommandResult(Json{{"target_path", path},
                                 {"size_bytes", sizeBytes},
                                 {"written_at", iso8601(parts.clock.now())}});
}

}  // namespace orv
