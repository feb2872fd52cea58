#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OrvPlatform/Clock.h"

namespace orv {

/// UTC, whole seconds (truncated towards the past), for example "2026-03-01T09:15:02Z".
std::string iso8601(WallTime time);

/// Reads "2026-03-01T09:15:02Z" and forms with an offset ("+02:00", "-0530"); nothing for
/// fractions of a second, impossible dates, times that WallTime cannot hold (which depends on the
/// standard library; 1678 to 2261 always fit) and everything else.
std::optional<WallTime> parseIso8601(std::string_view text);

}  // namespace orv
