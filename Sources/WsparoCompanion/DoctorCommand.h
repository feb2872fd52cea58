#pragma once

#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// "wsparo doctor": looks at everything that the agent needs, a line each, with what to do where
/// something is wrong. Shows no token.
int runDoctor(const Surroundings& surroundings);

}  // namespace orv::companion
