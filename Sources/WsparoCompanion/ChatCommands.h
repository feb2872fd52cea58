#pragma once

#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// "wsparo chat send": leaves the message for the agent.
int sendChat(const Surroundings& surroundings, const Arguments& arguments);

/// "wsparo chat list": what came in, and what still waits to go out.
int listChat(const Surroundings& surroundings, const Arguments& arguments);

/// "wsparo chat watch": messages as they come, until interrupted.
int watchChat(const Surroundings& surroundings, const Arguments& arguments);

}  // namespace orv::companion
