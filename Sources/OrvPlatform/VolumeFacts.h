#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orv {

/// The name under which people know the volume that is mounted at the path; nothing when the
/// system has none.
std::optional<std::string> volumeLocalizedName(const std::string& mountPoint);

struct VolumeCapacity {
    std::uint64_t totalBytes = 0;
    std::uint64_t availableBytes = 0;  // to those without special rights
};

/// Of the file system that holds the path; nothing when it does not say.
std::optional<VolumeCapacity> volumeCapacity(const std::string& path);

}  // namespace orv
