#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"

namespace orv {

/// A folder held open, for folders in which other users can plant things: whatever they do to its
/// path meanwhile, its names lead into this folder. Below the first folder no link is followed.
/// Names are single components. Every operation throws FileError, showing the path given here.
class OpenFolder {
public:
    /// A folder of the system, links followed. Errors show `shownPath`.
    static OpenFolder open(const std::string& path, std::string shownPath);

    OpenFolder subfolder(const std::string& name) const;

    /// Made when it is missing. It gets the mode whatever the umask, also when it was there with
    /// another one and is ours to change.
    OpenFolder madeSubfolder(const std::string& name, mode_t mode) const;

    /// Calls with every name but "." and "..", in the system's order, for as long as the call says
    /// to go on.
    void forEachName(const std::function<bool(std::string_view name)>& call) const;

    std::string readFile(const std::string& name, std::uint64_t limitBytes) const;
    void writeFileAtomically(const std::string& name, std::string_view bytes,
                             const WriteOptions& options) const;
    void removeFile(const std::string& name) const;

private:
    OpenFolder(FileDescriptor folder, std::string shownPath);
    FileInFolder file(const std::string& name) const;

    FileDescriptor folder;
    std::string path;
};

}  // namespace orv
