#include "OrvPlatform/Directory.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "OrvPlatform/DirectoryStream.h"
#include "OrvPlatform/File.h"

namespace orv {

namespace {

bool isDirectoryEntry(int directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status{};
    return fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

WallTime modificationTime(const struct stat& status) {
#ifdef __APPLE__
    const timespec time = status.st_mtimespec;
#else
    const timespec time = status.st_mtim;
#endif
    return WallTime(std::chrono::duration_cast<WallTime::duration>(
        std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)));
}

}  // namespace

std::vector<DirectoryEntry> readDirectory(const std::string& path) {
    if (hasNul(path)) throw FileError(EINVAL, path);
    DirectoryStream directory(opendir(path.c_str()), path);
    std::vector<DirectoryEntry> entries;
    while (const dirent* entry = directory.next()) {
        entries.push_back({entry->d_name, isDirectoryEntry(directory.descriptor(), *entry)});
    }
    return entries;
}

std::optional<EntryAttributes> readAttributes(const std::string& path) {
    struct stat status{};
    if (hasNul(path) || lstat(path.c_str(), &status) != 0) return std::nullopt;
    return EntryAttributes{S_ISDIR(status.st_mode), S_ISLNK(status.st_mode),
                           static_cast<std::uint64_t>(status.st_size), modificationTime(status)};
}

bool isDirectory(const std::string& path) {
    struct stat status{};
    return !hasNul(path) && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace orv
