#pragma once

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace orv {

/// The permission bits of a file, a folder or a symbolic link itself. Throws std::system_error.
inline mode_t modeOf(const std::string& path) {
    struct stat attributes{};
    if (::lstat(path.c_str(), &attributes) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return attributes.st_mode & 07777;
}

/// What lies in a folder, sorted. Throws std::filesystem::filesystem_error.
inline std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace orv
