#pragma once

#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// "wsparo login": keeps the session in the user's own file.
int logIn(const Surroundings& surroundings, const Arguments& arguments);

/// "wsparo logout"
int logOut(const Surroundings& surroundings);

}  // namespace orv::companion
