#include "OrvViewerShared/RemoteChatMessage.h"

#include <optional>

#include "OrvPlatform/Iso8601.h"

namespace orv {

void to_json(Json& out, const RemoteChatMessage& message) {
    out = Json{{"id", message.id},
               {"publicId", message.publicId},
               {"direction", message.direction},
               {"sender", message.sender},
               {"text", message.text},
               {"createdAt", iso8601(message.createdAt)}};
}

void from_json(const Json& in, RemoteChatMessage& message) {
    message.id = requiredText(in, "id");
    message.publicId = requiredText(in, "publicId");
    message.direction = requiredText(in, "direction");
    message.sender = requiredText(in, "sender");
    message.text = requiredText(in, "text");
    const std::optional<WallTime> createdAt = parseIso8601(requiredText(in, "createdAt"));
    if (!createdAt) throw DecodingError("The value of \"createdAt\" is not a date.");
    message.createdAt = *createdAt;
}

}  // namespace orv
