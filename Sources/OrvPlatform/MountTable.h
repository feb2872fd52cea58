#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orv {

/// A line of a Linux table of mounts.
struct MountEntry {
    std::string device;
    std::string mountPoint;
    std::string fileSystem;
};

/// The entries of "/proc/self/mounts", in which blanks are written as "\040"; incomplete lines are
/// skipped.
std::vector<MountEntry> parseMounts(std::string_view table);

}  // namespace orv
