#include "OrvPlatform/OpenFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/DirectoryStream.h"

namespace orv {

namespace {

constexpr int openFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

FileDescriptor opened(const FileInFolder& place, int extraFlags) {
    FileDescriptor folder(openat(place.folder, place.name.c_str(), openFlags | extraFlags));
    if (!folder.isOpen()) throw FileError(errno, place.shownPath);
    return folder;
}

/// Somebody else's folder keeps its mode: it is theirs, and root must not open it to everyone.
void setMode(int folder, mode_t mode, const std::string& shownPath) {
    struct stat status{};
    if (fstat(folder, &status) != 0) throw FileError(errno, shownPath);
    if ((status.st_mode & 07777) == mode || status.st_uid != geteuid()) return;
    if (fchmod(folder, mode) != 0) throw FileError(errno, shownPath);
}

}  // namespace

OpenFolder::OpenFolder(FileDescriptor given, std::string shownPath)
    : folder(std::move(given)), path(std::move(shownPath)) {
}

OpenFolder OpenFolder::open(const std::string& path, std::string shownPath) {
    const FileInFolder place{AT_FDCWD, path, shownPath};
    return {opened(place, 0), std::move(shownPath)};
}

FileInFolder OpenFolder::file(const std::string& name) const {
    FileInFolder place{folder.get(), name, path + "/" + name};
    const bool isOneComponent = !name.empty() && name.find('/') == std::string::npos &&
                                name.find('\0') == std::string::npos && name != "." && name != "..";
    if (!isOneComponent) throw FileError(EINVAL, place.shownPath);
    return place;
}

OpenFolder OpenFolder::subfolder(const std::string& name) const {
    FileInFolder place = file(name);
    return {opened(place, O_NOFOLLOW), std::move(place.shownPath)};
}

OpenFolder OpenFolder::madeSubfolder(const std::string& name, mode_t mode) const {
    const FileInFolder place = file(name);
    if (mkdirat(place.folder, place.name.c_str(), mode) != 0 && errno != EEXIST) {
        throw FileError(errno, place.shownPath);
    }
    OpenFolder made = subfolder(name);
    setMode(made.folder.get(), mode, made.path);
    return made;
}

void OpenFolder::forEachName(const std::function<bool(std::string_view name)>& call) const {
    // Opened anew: a duplicate would share its position with every other reading.
    FileDescriptor again = opened({folder.get(), ".", path}, 0);
    DirectoryStream directory(fdopendir(again.get()), path);
    again.release();
    while (const dirent* entry = directory.next()) {
        if (!call(entry->d_name)) return;
    }
}

std::string OpenFolder::readFile(const std::string& name, std::uint64_t limitBytes) const {
    return orv::readFile(file(name), limitBytes, Links::refuse);
}

void OpenFolder::writeFileAtomically(const std::string& name, std::string_view bytes,
                                     const WriteOptions& options) const {
    orv::writeFileAtomically(file(name), bytes, options);
}

void OpenFolder::removeFile(const std::string& name) const {
    const FileInFolder place = file(name);
    if (unlinkat(place.folder, place.name.c_str(), 0) != 0) {
        throw FileError(errno, place.shownPath);
    }
}

}  // namespace orv
