#pragma once

#include <string>

#include "OrvViewerShared/AgentConnection.h"
#include "WsparoCompanion/Language.h"

namespace orv::companion {

/// A lasting problem with the helpdesk; in Polish in the agent's own words.
std::string issueText(AgentConnectionIssue issue, Language language);

}  // namespace orv::companion
