#include "WsparoCompanion/ChatInbox.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "OrvPlatform/File.h"

namespace orv::companion {

namespace {

/// Takes the last piece behind a dot off the text.
std::string_view takeLastPiece(std::string_view& text) {
    const std::size_t dot = text.rfind('.');
    if (dot == std::string_view::npos) return std::exchange(text, std::string_view());
    const std::string_view piece = text.substr(dot + 1);
    text.remove_suffix(piece.size() + 1);
    return piece;
}

}  // namespace

std::int64_t writtenAt(std::string_view path) {
    const std::string name = lastPathComponent(std::string(path));
    std::string_view rest = name;
    for (int ending = 0; ending < 3; ++ending)  // the message's id, the direction, "json"
        takeLastPiece(rest);
    const std::string_view digits = takeLastPiece(rest);
    std::int64_t milliseconds = 0;
    const char* begin = digits.data();
    const char* end = begin + digits.size();
    const auto [stop, error] = std::from_chars(begin, end, milliseconds);
    return error == std::errc() && stop == end ? milliseconds : 0;
}

std::vector<std::string> byTime(std::vector<std::string> paths) {
    std::vector<std::pair<std::int64_t, std::string>> timed;
    timed.reserve(paths.size());
    for (std::string& path : paths) {
        const std::int64_t time = writtenAt(path);
        timed.emplace_back(time, std::move(path));
    }
    std::sort(timed.begin(), timed.end());
    paths.clear();
    for (auto& [time, path] : timed)
        paths.push_back(std::move(path));
    return paths;
}

std::vector<RemoteChatMessage> ChatInbox::takeNew() {
    std::vector<RemoteChatMessage> messages;
    std::set<std::string> stillThere;
    for (const std::string& path : byTime(store.incomingMessageFiles())) {
        if (!seen.contains(path)) {
            std::optional<RemoteChatMessage> message = store.read(path);
            if (!message) continue;
            messages.push_back(std::move(*message));
        }
        stillThere.insert(path);
    }
    seen = std::move(stillThere);
    return messages;
}

void ChatInbox::skipAll() {
    for (std::string& path : store.incomingMessageFiles())
        seen.insert(std::move(path));
}

}  // namespace orv::companion
