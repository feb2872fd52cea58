#pragma once

#include "OrvPlatform/CoreThread.h"
#include "OrvPlatform/Task.h"

namespace orv::companion {

/// A core thread for a command, and what Ctrl-C makes of the command's exit status.
class Interruptible {
public:
    /// A command that only ends by interruption succeeds with it; others were kept from their work.
    explicit Interruptible(int statusWhenInterrupted);

    asio::any_io_executor executor() { return core.context.get_executor(); }

    /// The task's exit status, or the one for an interruption. Throws the task's error.
    int run(Task<int> task);

    bool wasInterrupted() const { return core.wasInterrupted(); }

private:
    Task<void> keepStatus(Task<int> task);

    int status;
    CoreThread core;
};

}  // namespace orv::companion
