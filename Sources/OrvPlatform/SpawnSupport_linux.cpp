#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "OrvPlatform/SpawnSupport.h"

namespace orv {

int openPrivatePipe(int (&ends)[2]) {
    return ::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
}

int keepOtherDescriptorsOut(posix_spawnattr_t&, short&, posix_spawn_file_actions_t& actions) {
    // Ours are all close-on-exec; a library's may not be.
    return ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

}  // namespace orv
