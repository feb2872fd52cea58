#pragma once

#include <nlohmann/json_fwd.hpp>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"

namespace orv {

using Json = nlohmann::json;

/// A consultant's command line, run by a login shell with our own identity and environment.
class ShellCommand {
public:
    struct Parts {
        ProcessRunner& runner;
        const Clock& clock;
        SystemRoot root;
    };

    explicit ShellCommand(Parts parts);

    /// Runs payload's "command" by its "shell" ("zsh", "bash" or "sh") for at most
    /// "timeout_seconds", and returns what became of it: whatever the exit code, a command that
    /// ran is a result. Of each output the first "max_output_chars" characters are returned, and
    /// no more than those are ever held. Throws CommandError ("OrvViewerShell", 400) for an
    /// unknown shell or an empty command, LaunchError when the shell cannot be started.
    Task<Json> executeShell(Json payload);

private:
    Parts parts;
};

}  // namespace orv
