#pragma once

#include <string>

#include "OrvViewerShared/RemoteChatMessage.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// A message for people: who, when and where on one line, the text indented below it.
std::string messageText(const RemoteChatMessage& message, const Surroundings& surroundings);

/// For scripts: the six keys of the message's file on one line.
std::string messageJsonLine(const RemoteChatMessage& message);

}  // namespace orv::companion
