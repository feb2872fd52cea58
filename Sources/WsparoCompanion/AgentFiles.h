#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/Update/ViewerUpdateStatus.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "OrvViewerShared/ViewerState.h"
#include "WsparoCompanion/RecordFile.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// The settings at the places where the daemon finds them. Not in the current folder: whoever
/// planted a file there would be sent the user's password. Nothing is copied or migrated on disk.
Reading<ViewerSettings> readSettings(const SystemRoot& root,
                                     const std::optional<std::string>& environmentPath);

Reading<ViewerState> readState(const SystemRoot& root);

/// As ViewerUpdateCoordinator reads it: a stale one reads as failed.
Reading<ViewerUpdateStatus> readUpdateStatus(const Surroundings& surroundings);

/// Throws CommandFailure telling what is wrong with the settings.
ViewerSettings requiredSettings(const Surroundings& surroundings);

/// What the settings or the state are not good for, as people are told.
std::string explain(const Reading<ViewerSettings>& settings, const Surroundings& surroundings);
std::string explain(const Reading<ViewerState>& state, const Surroundings& surroundings);

}  // namespace orv::companion
