#pragma once

#include <string>
#include <vector>

#include "OrvPlatform/SystemRoot.h"
#include "WsparoCompanion/Language.h"

namespace orv::companion {

/// The companion command line, for the person at the Mac and for administrators.
struct CompanionProgram {
    SystemRoot root;
    std::vector<std::string> arguments;  // without the program's name
    Environment environment;

    /// As this process was started; the real root.
    static CompanionProgram ofThisProcess(int argumentCount, char** arguments);

    /// Runs the command and returns the process's exit status. Failures are told on standard
    /// error; a reader who leaves ends the program quietly.
    int run() const;
};

}  // namespace orv::companion
