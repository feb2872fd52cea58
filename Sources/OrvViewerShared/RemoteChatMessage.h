#pragma once

#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"

namespace orv {

/// One message of a chat between a consultant and the person at the Mac: one file of six keys,
/// which are the fields' names.
struct RemoteChatMessage {
    static constexpr const char* outgoing = "outgoing";  // to the consultant
    static constexpr const char* incoming = "incoming";

    std::string id;        // unique; the server recognises a repeated message by it
    std::string publicId;  // of the conversation
    std::string direction;
    std::string sender;  // as shown to people
    std::string text;
    WallTime createdAt;  // written as ISO 8601, whole seconds

    bool operator==(const RemoteChatMessage&) const = default;
};

void to_json(Json& out, const RemoteChatMessage& message);
/// Throws DecodingError naming the key that is missing or wrong.
void from_json(const Json& in, RemoteChatMessage& message);

}  // namespace orv
