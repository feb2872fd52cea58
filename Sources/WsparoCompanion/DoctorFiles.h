#pragma once

#include <optional>

#include "OrvViewerShared/ViewerSettings.h"
#include "OrvViewerShared/ViewerState.h"
#include "WsparoCompanion/DoctorReport.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Whether the settings are there and good; then what they say.
std::optional<ViewerSettings> diagnoseSettings(const Surroundings& surroundings,
                                               DoctorReport& report);

/// Whether the agent has registered and is alive; then its state.
std::optional<ViewerState> diagnoseState(const Surroundings& surroundings,
                                         const std::optional<ViewerSettings>& settings,
                                         DoctorReport& report);

/// The folders that the agent and the user share, the log, and the user's own session.
void diagnoseFolders(const Surroundings& surroundings, DoctorReport& report);

}  // namespace orv::companion
