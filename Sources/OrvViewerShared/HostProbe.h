#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orv {

/// What the tools of a network scan print, as values. Nothing for what is not there; unknown lines
/// and other languages are passed over.

/// Milliseconds, from the "time=" of a ping's answer; a decimal comma is one too.
std::optional<double> parsePingLatency(std::string_view pingOutput);

/// The hardware address behind " at ", with two lower-case digits a group ("0a:1b:02:03:04:05").
std::optional<std::string> parseHardwareAddress(std::string_view arpOutput);

/// The text behind the first "name: ".
std::optional<std::string> parseHostName(std::string_view lookupOutput);

}  // namespace orv
