#pragma once

#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// "wsparo update check": asks the agent, and follows what it does about it to the end.
int checkForUpdate(const Surroundings& surroundings, const Arguments& arguments);

/// "wsparo update status"
int showUpdateStatus(const Surroundings& surroundings, const Arguments& arguments);

}  // namespace orv::companion
