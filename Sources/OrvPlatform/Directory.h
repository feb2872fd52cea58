#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Clock.h"

namespace orv {

struct DirectoryEntry {
    std::string name;  // the bytes that open it again
    /// Of the entry itself: a link to a folder is none. False when the system does not say.
    bool isDirectory = false;
};

/// Every entry but "." and "..", in the system's order. Throws FileError.
std::vector<DirectoryEntry> readDirectory(const std::string& path);

/// What is known of a path itself, links not followed.
struct EntryAttributes {
    bool isDirectory = false;
    bool isSymbolicLink = false;
    std::uint64_t sizeBytes = 0;
    WallTime modifiedAt;
};

/// Nothing when it cannot be read.
std::optional<EntryAttributes> readAttributes(const std::string& path);

/// Whether the path leads to a folder, links followed.
bool isDirectory(const std::string& path);

}  // namespace orv
