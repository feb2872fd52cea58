#include "OrvViewerShared/Commands/NotifyCommand.h"

#include <string>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/Uuid.h"
#include "OrvViewerShared/Commands/Payload.h"

namespace orv {

namespace {

constexpr const char* defaultTitle = "Orv-Desk";
constexpr const char* defaultSender = "Konsultant";

std::string withoutDashes(std::string text) {
    std::erase(text, '-');
    return text;
}

std::string shownSender(const std::string& given) {
    std::string sender = trimmed(given);
    return sender.empty() ? defaultSender : sender;
}

}  // namespace

Task<Json> NotifyCommand::handleUserNotification(Json payload) {
    const std::string title = textIfPresent(payload, "title").value_or(defaultTitle);
    const std::string text = textIfPresent(payload, "message").value_or("");
    const std::string sender = textIfPresent(payload, "sender").value_or(defaultSender);
    const std::string publicId =
        textIfPresent(payload, "public_id")
            .value_or("device-" + parts.registration.deviceUid().value_or("mac"));
    const Json chatMessageId = payloadValue(payload, "chat_message_id");

    if (!trimmed(text).empty()) {
        RemoteChatMessage message{
            withoutDashes(randomUuid()), publicId, RemoteChatMessage::incoming,
            shownSender(sender),         text,     parts.clock.now()};
        auto save = [&store = parts.store, message = std::move(message)] { store.save(message); };
        co_await parts.workers.run(std::move(save));
    }
    parts.logger.info(fmt::format("User notification queued for menu bar. title={} public_id={}",
                                  title, publicId));
    Json result{{"shown", true},
                {"title", title},
                {"message", text},
                {"sender", sender},
                {"public_id", publicId}};
    if (chatMessageId.is_number_integer()) result["chat_message_id"] = chatMessageId;
    co_return result;
}

}  // namespace orv
