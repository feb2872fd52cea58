#pragma once

#include <optional>
#include <sys/types.h>

#include "OrvPlatform/FileDescriptor.h"
#include "OrvPlatform/ProcessRunner.h"

namespace orv {

/// A started program, from its launch until it has been waited for. It has our environment with
/// the request's changes, our working directory and user, the null device as standard input, no
/// other descriptor of ours, no blocked signal and every signal's default handling.
class ChildProcess {
public:
    /// Looks at the executable, the arguments, the environment and which sinks there are. Throws
    /// LaunchError when the program cannot be started or the system's limits are reached.
    explicit ChildProcess(const ProcessRequest& request);

    /// A program that still runs is killed and waited for.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The read ends of the outputs that have a sink, non-blocking; the caller becomes the owner.
    FileDescriptor takeStandardOutput() { return std::move(standardOutput); }
    FileDescriptor takeStandardError() { return std::move(standardError); }

    /// How the program ended; nothing while it runs. Never blocks.
    std::optional<ProcessEnd> end();

    /// To this program only, not to its children; nothing happens once it has ended.
    void signal(int number);

    pid_t id() const { return processId; }

private:
    pid_t processId = -1;
    std::optional<ProcessEnd> knownEnd;
    FileDescriptor standardOutput;
    FileDescriptor standardError;
};

}  // namespace orv
