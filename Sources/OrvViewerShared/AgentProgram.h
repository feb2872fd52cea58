#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// What a program around the agent decides before it runs.
struct AgentProgram {
    SystemRoot root;
    std::vector<std::string> arguments;  // without the program's name
    std::optional<std::string> environmentSettingsPath;
    std::string currentDirectory;
    std::string mainBundlePath;

    /// As this process was started: its arguments, environment and folders; the real root.
    static AgentProgram ofThisProcess(int argumentCount, char** arguments);

    /// Runs the agent and returns the process's exit status.
    ///
    /// "--version" anywhere prints the version and ends; "--once" sends one inventory and one
    /// heartbeat; otherwise the agent runs until SIGTERM or SIGINT, which end it within a second
    /// with status 0. Settings that cannot be used are logged, named on standard error, and end it
    /// with status 1.
    int run() const;
};

}  // namespace orv
