#pragma once

#include <optional>
#include <string>

namespace orv {

/// The device's stable identifier: "mac-" and 32 hexadecimal digits made from what the hardware
/// says of itself, so that neither a new name nor a reinstallation makes it another device. The
/// host name counts only when the hardware says nothing.
std::string buildDeviceUid(const std::string& hostname, const std::optional<std::string>& serial,
                           const std::optional<std::string>& platformUuid);

}  // namespace orv
