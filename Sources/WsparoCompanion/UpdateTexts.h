#pragma once

#include <string>

#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Whether nothing more will happen: nothing newer, installed or failed.
bool isFinal(const ViewerUpdateStatus& status);

/// The phase in words; an unknown one as it is written.
std::string phaseText(const std::string& phase, const Surroundings& surroundings);

/// "pobieranie: Znaleziono wersję 0.2.56. Pobieram aktualizację..."
std::string progressText(const ViewerUpdateStatus& status, const Surroundings& surroundings);

/// The update in one line, or what keeps it from being told.
std::string updateLine(const Reading<ViewerUpdateStatus>& update, const Surroundings& surroundings);

}  // namespace orv::companion
