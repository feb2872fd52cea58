#include "OrvPlatform/DirectoryStream.h"

#include <cerrno>
#include <string_view>

#include "OrvPlatform/File.h"

namespace orv {

namespace {

DIR* checked(DIR* opened, const std::string& path) {
    if (opened == nullptr) throw FileError(errno, path);
    return opened;
}

}  // namespace

DirectoryStream::DirectoryStream(DIR* opened, const std::string& shownPath)
    : stream(checked(opened, shownPath)), path(shownPath) {
}

const dirent* DirectoryStream::next() {
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr && errno != 0) throw FileError(errno, path);
        if (entry == nullptr) return nullptr;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") return entry;
    }
}

}  // namespace orv
