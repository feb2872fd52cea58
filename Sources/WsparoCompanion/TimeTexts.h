#pragma once

#include <string>

#include "OrvPlatform/Clock.h"
#include "WsparoCompanion/Language.h"

namespace orv::companion {

/// "3 min temu", "2 godziny temu", "5 dni temu"; below a minute, and for a time that lies ahead by
/// less than that, "przed chwilą". A time further ahead is given in full.
std::string timeAgo(WallTime then, WallTime now, Language language);

/// In the time zone of this process: "2026-03-01 10:15".
std::string localTime(WallTime time);

}  // namespace orv::companion
