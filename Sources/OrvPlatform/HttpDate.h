#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Clock.h"

namespace orv {

/// The time in a "Date" header ("Sun, 01 Mar 2026 09:15:02 GMT"); nothing when it is none.
std::optional<WallTime> parseHttpDate(const std::string& text);

}  // namespace orv
