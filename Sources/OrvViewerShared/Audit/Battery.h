#pragma once

#include <string_view>

#include "OrvPlatform/Json.h"

namespace orv {

/// By the answer of "/usr/bin/pmset -g batt":
///     Now drawing from 'Battery Power'
///      -InternalBattery-0 (id=4653155)	81%; discharging; 3:12 remaining present: true
/// UPSs are listed in the same way under their own names.
bool hasBattery(std::string_view answer);

/// "source": "pmset"; "present", "percent", "state" ("charging", "discharging", "charged",
/// "finishing charge" or "AC attached") and "time_remaining" ("3:12"), each only when known.
Json batteryObject(std::string_view answer);

}  // namespace orv
