#include "WsparoCompanion/ChatTexts.h"

#include <fmt/format.h>

#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TimeTexts.h"

namespace orv::companion {

std::string messageText(const RemoteChatMessage& message, const Surroundings& surroundings) {
    const Output& out = surroundings.out;
    std::string head =
        fmt::format("{}  {}  {}", localTime(message.createdAt),
                    out.in(Colour::bold, printableLine(message.sender)),
                    out.in(Colour::faint, fmt::format("[{}]", printableLine(message.publicId))));
    if (message.direction == RemoteChatMessage::outgoing) {
        const std::string waits = fmt::format("({})", surroundings.say(texts::chatWaits));
        head += "  " + out.in(Colour::yellow, waits);
    }
    constexpr const char* indentation = "    ";
    return fmt::format("{}\n{}{}", head, indentation, printableBlock(message.text, indentation));
}

std::string messageJsonLine(const RemoteChatMessage& message) {
    return compactJson(message);
}

}  // namespace orv::companion
