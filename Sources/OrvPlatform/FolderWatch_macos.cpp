#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FolderWatch.h"

namespace orv {

namespace {

constexpr unsigned folderIsGone = NOTE_DELETE | NOTE_RENAME | NOTE_REVOKE;

}  // namespace

FolderWatch::Source FolderWatch::begin(const std::string& path) {
    FileDescriptor folder(::open(path.c_str(), O_EVTONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen()) throw FileError(errno, path);
    FileDescriptor queue(::kqueue());
    if (!queue.isOpen()) throw FileError(errno, path);
    ::fcntl(queue.get(), F_SETFD, FD_CLOEXEC);
    struct kevent wanted{};
    EV_SET(&wanted, static_cast<uintptr_t>(folder.get()), EVFILT_VNODE, EV_ADD | EV_CLEAR,
           NOTE_WRITE | folderIsGone, 0, nullptr);
    if (::kevent(queue.get(), &wanted, 1, nullptr, 0, nullptr) != 0) throw FileError(errno, path);
    return {std::move(queue), std::move(folder)};
}

bool FolderWatch::takeNotices(int queue) {
    bool isThere = true;
    constexpr timespec atOnce{};
    struct kevent event{};
    while (::kevent(queue, nullptr, 0, &event, 1, &atOnce) > 0) {
        if ((event.fflags & folderIsGone) != 0) isThere = false;
    }
    return isThere;
}

}  // namespace orv
