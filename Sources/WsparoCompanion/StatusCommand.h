#pragma once

#include <string>

#include "OrvPlatform/Json.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// What the agent left about itself.
struct StatusFacts {
    Reading<ViewerState> state;
    Reading<ViewerSettings> settings;
    Reading<ViewerUpdateStatus> update;

    bool isRegistered() const { return state.record.deviceUid.has_value(); }
};

/// For scripts: every key is always there, null when unknown. Tokens are not among them.
Json statusJson(const StatusFacts& facts);

/// For people; the state must be good.
std::string statusText(const StatusFacts& facts, const Surroundings& surroundings);

/// 0 only for a registered device without a connection problem.
int statusExitCode(const StatusFacts& facts);

/// "wsparo status"
int showStatus(const Surroundings& surroundings, const Arguments& arguments);

}  // namespace orv::companion
