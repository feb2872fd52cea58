#include "OrvViewerShared/RemoteChatStore.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Uuid.h"

namespace orv {

namespace {

// Only root can plant something here above the first of ours.
constexpr const char* parentDirectory = "/Users/Shared";
constexpr const char* productFolder = "Wsparo Brenvox";
constexpr const char* chatFolder = "remote-chat";
constexpr std::string_view outgoingSuffix = ".outgoing.json";

/// With the characters that some file system or shell takes for more than a part of a name.
std::string safeName(std::string publicId) {
    for (char& c : publicId) {
        if (std::string_view("/\\:?%*|\"<>").find(c) != std::string_view::npos) c = '_';
    }
    return publicId;
}

std::string fileName(const RemoteChatMessage& message, WallTime now) {
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    return fmt::format("{}.{}.{}.{}.json", safeName(message.publicId), sinceEpoch.count(),
                       message.id, message.direction);
}

std::string pathOf(const std::string& name) {
    return std::string(RemoteChatStore::directory) + "/" + name;
}

/// Keeps the smallest of all that it was given, the largest of them at its top.
class SmallestNames {
public:
    explicit SmallestNames(std::size_t limit) : limit(limit) {}

    void add(std::string_view name) {
        if (heap.size() >= limit) {
            if (heap.empty() || name >= heap.front()) return;
            std::pop_heap(heap.begin(), heap.end());
            heap.pop_back();
        }
        heap.emplace_back(name);
        std::push_heap(heap.begin(), heap.end());
    }

    std::vector<std::string> sorted() && {
        std::sort_heap(heap.begin(), heap.end());
        return std::move(heap);
    }

private:
    std::size_t limit;
    std::vector<std::string> heap;
};

}  // namespace

RemoteChatStore::RemoteChatStore(SystemRoot systemRoot, const Clock& usedClock,
                                 const ViewerLogger& usedLogger)
    : root(std::move(systemRoot)), clock(usedClock), logger(usedLogger) {
}

OpenFolder RemoteChatStore::openParent() const {
    return OpenFolder::open(root.locate(parentDirectory), parentDirectory);
}

OpenFolder RemoteChatStore::openDirectory() const {
    return openParent().subfolder(productFolder).subfolder(chatFolder);
}

OpenFolder RemoteChatStore::ensureDirectory() const {
    createDirectories(root.locate(parentDirectory));
    // Whoever of the two comes first makes the folder for both, and for every user of the Mac.
    return openParent().madeSubfolder(productFolder, 0755).madeSubfolder(chatFolder, 0777);
}

void RemoteChatStore::save(const RemoteChatMessage& message) const {
    const std::string name = fileName(message, clock.now());
    const std::string text = prettyJson(message);
    // Nobody would read it.
    if (text.size() > messageLimitBytes) throw FileError("Larger than the limit", pathOf(name));
    WriteOptions options;
    options.mode = 0666;
    ensureDirectory().writeFileAtomically(name, text, options);
}

void RemoteChatStore::saveOrLog(const RemoteChatMessage& message) const {
    try {
        save(message);
    } catch (const std::exception& error) {
        logger.error(error, "Remote chat message save failed");
    }
}

void RemoteChatStore::saveOutgoing(const std::string& publicId, const std::string& text,
                                   const std::string& sender) const {
    saveOrLog({randomUuid(), publicId, RemoteChatMessage::outgoing, sender, text, clock.now()});
}

void RemoteChatStore::saveOutgoing(const RemoteChatMessage& message) const {
    saveOrLog(message);
}

void RemoteChatStore::saveIncoming(const std::string& publicId, const std::string& sender,
                                   const std::string& text) const {
    saveOrLog({randomUuid(), publicId, RemoteChatMessage::incoming,
               sender.empty() ? "Konsultant" : sender, text, clock.now()});
}

bool RemoteChatStore::showsNothingOutgoing(std::size_t mostNames) const {
    std::size_t looked = 0;
    bool isClear = true;
    try {
        openDirectory().forEachName([&](std::string_view name) {
            isClear = ++looked <= mostNames && !name.ends_with(outgoingSuffix);
            return isClear;
        });
    } catch (const FileError&) {
        return false;
    }
    return isClear;
}

std::vector<std::string> RemoteChatStore::outgoingMessageFiles(const std::string& after,
                                                               std::size_t limit) const {
    return messageFiles(outgoingSuffix, after, limit);
}

std::vector<std::string> RemoteChatStore::incomingMessageFiles(const std::string& after,
                                                               std::size_t limit) const {
    return messageFiles(".incoming.json", after, limit);
}

std::vector<std::string> RemoteChatStore::messageFiles(std::string_view suffix,
                                                       const std::string& after,
                                                       std::size_t limit) const {
    const std::string afterName = lastPathComponent(after);
    SmallestNames names(limit);
    try {
        openDirectory().forEachName([&](std::string_view name) {
            if (name.ends_with(suffix) && name > afterName) names.add(name);
            return true;
        });
    } catch (const FileError& error) {
        logger.error(error, "Remote chat directory read failed");
        return {};
    }
    std::vector<std::string> paths = std::move(names).sorted();
    for (std::string& path : paths)
        path = pathOf(path);
    return paths;
}

std::optional<RemoteChatMessage> RemoteChatStore::read(const std::string& path) const {
    try {
        const std::string text =
            openDirectory().readFile(lastPathComponent(path), messageLimitBytes);
        return parseJson(text).get<RemoteChatMessage>();
    } catch (const FileError&) {
        return std::nullopt;
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

void RemoteChatStore::remove(const std::string& path) const {
    try {
        openDirectory().removeFile(lastPathComponent(path));
    } catch (const FileError&) {
        return;  // it is sent again, and the server recognises it
    }
}

}  // namespace orv
