#pragma once

#include <string>
#include <sys/types.h>

namespace orv {

/// Makes the folder, with all that are missing above it, and gives it exactly these permissions
/// (sticky bit included) whatever the umask. What stands there must be a real folder: a link to
/// one is refused. Throws FileError.
void ensureFolder(const std::string& path, mode_t mode);

/// Removes what stands there: a file, a link (never what it leads to), or a folder with all that is
/// in it. Whether nothing stands there any more.
bool removeEntry(const std::string& path);

}  // namespace orv
