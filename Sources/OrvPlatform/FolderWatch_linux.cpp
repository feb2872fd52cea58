#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FolderWatch.h"

namespace orv {

namespace {

// Not IN_CREATE: a file that has only just been made holds nothing yet.
constexpr std::uint32_t wanted =
    IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t folderIsGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

}  // namespace

FolderWatch::Source FolderWatch::begin(const std::string& path) {
    FileDescriptor queue(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!queue.isOpen()) throw FileError(errno, path);
    if (::inotify_add_watch(queue.get(), path.c_str(), wanted | IN_ONLYDIR) < 0) {
        throw FileError(errno, path);
    }
    return {std::move(queue), {}};
}

bool FolderWatch::takeNotices(int queue) {
    bool isThere = true;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t length = ::read(queue, buffer.data(), buffer.size());
        if (length <= 0) return isThere;
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            if ((event.mask & folderIsGone) != 0) isThere = false;
            at += sizeof event + event.len;
        }
    }
}

}  // namespace orv
