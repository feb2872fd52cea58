#pragma once

#include <cstdint>
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

}  // namespace orv
