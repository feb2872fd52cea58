#pragma once

#include <spawn.h>

namespace orv {

/// What posix_spawn needs from each system, beyond POSIX. Returns errno's value, or 0.

/// A pipe whose ends no other program inherits.
int openPrivatePipe(int (&ends)[2]);

/// The program gets no descriptor of ours but those that the actions, complete at this point,
/// give it as 0, 1 and 2.
int keepOtherDescriptorsOut(posix_spawnattr_t& attributes, short& flags,
                            posix_spawn_file_actions_t& actions);

}  // namespace orv
