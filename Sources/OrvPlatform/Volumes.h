#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/SystemRoot.h"

namespace orv {

struct Volume {
    std::string name;  // as people know it
    std::string mountPoint;
    std::uint64_t totalBytes = 0;
    std::uint64_t freeBytes = 0;  // to those without special rights
    std::string fileSystem;       // its type: "apfs", "ext4"
};

/// The volumes that hold somebody's files: pseudo file systems, the system's own hidden volumes,
/// further mounts of the same device and volumes that do not tell their size are left out. Linux
/// reads the root's own table of mounts when a relocated root has one. May wait for a network
/// volume that does not answer: for a worker.
std::vector<Volume> mountedVolumes(const SystemRoot& root);

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
