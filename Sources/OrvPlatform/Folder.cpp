#include "OrvPlatform/Folder.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"

namespace orv {

namespace {

constexpr mode_t permissionBits = 07777;

}  // namespace

void ensureFolder(const std::string& path, mode_t mode) {
    createDirectories(path);
    const FileDescriptor folder(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!folder.isOpen()) throw FileError(errno, path);
    struct stat attributes{};
    if (::fstat(folder.get(), &attributes) != 0) throw FileError(errno, path);
    // Only its owner may change the mode, but everybody may find it as it should be.
    if ((attributes.st_mode & permissionBits) == mode) return;
    if (::fchmod(folder.get(), mode) != 0) throw FileError(errno, path);
}

bool removeEntry(const std::string& path) {
    std::error_code failure;
    std::filesystem::remove_all(path, failure);
    return !failure;
}

}  // namespace orv
