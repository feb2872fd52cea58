#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// The first whole number that follows the label; nothing when there is no label, no number, or
/// one beyond 63 bits.
std::optional<std::int64_t> firstMatchInteger(std::string_view text, std::string_view label);

/// The value in the answer of "/usr/sbin/sysctl KEY": what follows "KEY: " (or "KEY = ") on its
/// line. The empty text when the answer has no such line.
std::string sysctlValue(std::string_view answer, std::string_view key);

/// The time in the answer of "/usr/sbin/sysctl -n kern.boottime":
///     { sec = 1772300000, usec = 0 } Sat Feb 28 18:33:20 2026
std::optional<WallTime> parseBootTime(std::string_view answer);

/// Whole seconds since the boot; 0 when it is unknown or (the clock was set back) in the future.
std::int64_t uptimeSeconds(std::optional<WallTime> bootTime, WallTime now);

/// Bytes in use by the answer of "/usr/bin/vm_stat": pages that are active, wired down or occupied
/// by the compressor. Nothing when the answer does not tell the page size.
std::optional<std::int64_t> memoryUsage(std::string_view answer);

/// The load average in percent of what the processors can do: one decimal, 0 to 100.
double cpuLoadPercent(std::optional<double> oneMinuteLoad, unsigned activeProcessors);

/// The word after each "ether " in the answer of "/sbin/ifconfig -a", without duplicates, in the
/// order of appearance.
std::vector<std::string> macAddresses(std::string_view answer);

/// The system's build ("24F74") by its own version file; the empty text when it is unknown.
/// Reads a file: for a worker.
std::string osBuild(const SystemRoot& root);

}  // namespace orv
