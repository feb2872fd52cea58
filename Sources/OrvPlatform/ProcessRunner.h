#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "OrvPlatform/Task.h"

namespace orv {

struct Exited {
    int code = 0;
    bool operator==(const Exited&) const = default;
};
struct Signalled {
    int signal = 0;
    bool operator==(const Signalled&) const = default;
};
using ProcessEnd = std::variant<Exited, Signalled>;

/// Takes output as it comes, in pieces of at most 64 KiB, on the core thread. Empty: the stream
/// goes to the null device. What it throws ends the program and is thrown by the call.
using OutputSink = std::function<void(std::string_view bytes)>;

struct ProcessRequest {
    std::string executable;                       // absolute path on this file system
    std::vector<std::string> arguments;           // after the program's own name, which is the path
    std::vector<std::string> environmentChanges;  // "NAME=value", on top of our own environment
    std::chrono::nanoseconds timeout = std::chrono::nanoseconds::max();
    OutputSink onStandardOutput;
    OutputSink onStandardError;
    /// Nothing that is sent to our session or process group reaches it or what it starts: what it
    /// leaves behind lives on when launchd ends us and our group.
    bool inOwnSession = false;
};

struct ProcessResult {
    ProcessEnd end;
    bool timedOut = false;                // it still ran when the time was up, and was told to end
    std::chrono::nanoseconds duration{};  // from just before the launch to after the last read
};

/// A program that never started; what() reads "No such file or directory: /bin/x".
class LaunchError : public std::runtime_error {
public:
    LaunchError(const std::string& executable, std::string reason, bool isTemporary = false)
        : std::runtime_error(reason + ": " + executable),
          why(std::move(reason)),
          temporary(isTemporary) {}

    /// Without the path: for callers that show another one than they started.
    const std::string& reason() const { return why; }

    /// The system has no room for one more process or descriptor right now.
    bool isTemporary() const { return temporary; }

private:
    std::string why;
    bool temporary;
};

/// Runs one program by absolute path, without a shell, to its end and the end of its output.
///
/// When the time-out passes first: SIGTERM, 0.3 s, SIGKILL, to the program's own process only. A
/// background child that keeps an output open holds the call no longer than the time-out, but at
/// least 1 s after the program's end; what was read by then stands. Standard input is the null
/// device. A program that fails is a ProcessEnd; throws LaunchError when it never started.
/// Cancelling the task ends the program in the same way, without a result: the call throws the
/// cancellation error once the program is gone.
class ProcessRunner {
public:
    virtual ~ProcessRunner() = default;
    virtual Task<ProcessResult> run(ProcessRequest request) = 0;
};

}  // namespace orv
