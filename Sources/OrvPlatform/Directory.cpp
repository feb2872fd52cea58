#include "OrvPlatform/Directory.h"

#include <cerrno>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

#include "OrvPlatform/File.h"

namespace orv {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

bool isDirectoryEntry(DIR* directory, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_DIR;
    struct stat status{};
    return fstatat(dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
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
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.c_str()));
    if (!directory) throw FileError(errno, path);
    std::vector<DirectoryEntry> entries;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory.get());
        if (entry == nullptr) break;
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") continue;
        entries.push_back({std::string(name), isDirectoryEntry(directory.get(), *entry)});
    }
    if (errno != 0) throw FileError(errno, path);
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
