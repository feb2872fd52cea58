#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"

namespace orv {

struct ShellLimits {
    /// Then the tool is told to end, and has no answer.
    std::chrono::nanoseconds timeout = std::chrono::seconds(120);
    /// Of each output; a tool that prints more has no answer.
    std::size_t outputBytes = std::size_t{16} << 20;
};

/// Asks the system's own tools, by their absolute paths on the Mac and without a shell, in no
/// language in particular. Whatever goes wrong, there is simply no answer; only cancellation is
/// thrown.
class Shell {
public:
    Shell(ProcessRunner& runner, SystemRoot root, ShellLimits limits = {});

    /// What the tool printed on its standard output, without white space around, when it ended
    /// with status 0 and printed valid UTF-8. Its standard error goes nowhere.
    Task<std::optional<std::string>> run(std::string executable,
                                         std::vector<std::string> arguments);

    /// For tools that answer on standard error or use their status for other things: the lines of
    /// standard output and then those of standard error, without white space around, whatever the
    /// status. Nothing when the tool did not end by itself or printed anything but valid UTF-8.
    Task<std::optional<std::string>> processOutput(std::string executable,
                                                   std::vector<std::string> arguments);

private:
    ProcessRequest requestFor(const std::string& executable, std::vector<std::string> arguments);
    Task<std::optional<int>> statusOf(ProcessRequest request);

    ProcessRunner& runner;
    SystemRoot root;
    ShellLimits limits;
};

}  // namespace orv
