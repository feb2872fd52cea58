#include "OrvViewerShared/ChatRelay.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "OrvPlatform/AtScopeEnd.h"
#include "OrvPlatform/Cancellation.h"

namespace orv {

namespace {

/// Identifiers come from files that every user can write: they get no line of their own in the
/// log, and no space to crowd out others.
std::string forLog(std::string_view id) {
    std::string shown(id.substr(0, 128));
    for (char& c : shown) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) c = '?';
    }
    return shown;
}

}  // namespace

ChatRelay::ChatRelay(Parts given) : parts(std::move(given)), ended(parts.executor) {
}

Task<void> ChatRelay::sendPendingChatMessages(std::string reason) {
    const std::optional<std::string> deviceUid = parts.registration.deviceUid();
    if (!deviceUid || isOneWaiting) co_return;
    if (isSending) {
        isOneWaiting = true;
        const AtScopeEnd noLonger([this] { isOneWaiting = false; });
        while (isSending)
            co_await ended.wait();
    }
    // Nearly always: then nobody else has to wake up for it.
    if (parts.store.showsNothingOutgoing()) co_return;
    isSending = true;
    const AtScopeEnd letTheNextOne([this] {
        isSending = false;
        ended.notify();
    });
    co_await sendAll(*deviceUid, std::move(reason));
}

Task<void> ChatRelay::sendAll(std::string deviceUid, std::string reason) {
    std::string last;
    for (;;) {
        auto list = [&store = parts.store, last, limit = parts.filesAtOnce] {
            return store.outgoingMessageFiles(last, limit);
        };
        const std::vector<std::string> paths = co_await parts.workers.run(std::move(list));
        for (const std::string& path : paths)
            co_await sendOne(path, deviceUid, reason);
        if (paths.size() < parts.filesAtOnce) co_return;
        last = paths.back();
    }
}

Task<void> ChatRelay::sendOne(std::string path, std::string deviceUid, std::string reason) {
    auto read = [&store = parts.store, path] { return store.read(path); };
    const std::optional<RemoteChatMessage> message = co_await parts.workers.run(std::move(read));
    if (!message) co_return;
    try {
        co_await parts.apiClient.sendChatMessage(deviceUid, *message);
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, "Remote chat reply send failed id=" + forLog(message->id));
        co_return;
    }
    auto remove = [&store = parts.store, path] { store.remove(path); };
    co_await parts.workers.run(std::move(remove));
    parts.logger.info(
        fmt::format("Remote chat reply sent. id={} reason={}", forLog(message->id), reason));
}

}  // namespace orv
