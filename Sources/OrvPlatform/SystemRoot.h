#pragma once

#include <string>
#include <string_view>

namespace orv {

/// Where the system's absolute paths live. The product's root is "/"; development and tests give
/// a folder that looks like a Mac. Everything that opens a file or starts a tool asks here for the
/// real place; everything that leaves the agent (results, log lines, scripts) shows the Mac's own
/// path, never the prefix.
class SystemRoot {
public:
    /// The real system.
    SystemRoot() = default;

    /// A folder that stands for "/"; an absolute path.
    explicit SystemRoot(std::string folder);

    /// The place on this file system of an absolute path of the Mac. A relative path is returned
    /// as it is.
    std::string locate(std::string_view absolutePath) const;

    /// The Mac's path of a place below the root; a place elsewhere is returned as it is.
    std::string shown(std::string_view location) const;

    bool isRelocated() const { return !prefix.empty(); }

private:
    std::string prefix;  // without a trailing slash; empty for "/"
};

}  // namespace orv
