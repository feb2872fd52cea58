#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "OrvPlatform/SpawnSupport.h"

namespace orv {

int openPrivatePipe(int (&ends)[2]) {
    if (::pipe(ends) != 0) return errno;
    // Programs are started on this thread only, so none can start in between.
    for (const int end : ends)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    return 0;
}

int keepOtherDescriptorsOut(posix_spawnattr_t&, short& flags, posix_spawn_file_actions_t&) {
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
    return 0;
}

}  // namespace orv
