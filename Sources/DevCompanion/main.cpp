// The companion command line over a folder that looks like a Mac, for development and tests:
//
//     wsparo-dev --root DIR [command...]
//
// The user's own files, too, lie below DIR, at the path of the home folder.

#include <cstdio>
#include <filesystem>

#include "WsparoCompanion/CompanionProgram.h"
#include "WsparoCompanion/ExitCode.h"

int main(int argumentCount, char** arguments) {
    using namespace orv::companion;
    CompanionProgram program = CompanionProgram::ofThisProcess(argumentCount, arguments);
    std::vector<std::string>& given = program.arguments;
    if (given.size() < 2 || given[0] != "--root") {
        std::fputs("usage: wsparo-dev --root DIR [command...]\n", stderr);
        return exitCode::usage;
    }
    program.root = orv::SystemRoot(std::filesystem::absolute(given[1]).lexically_normal().string());
    given.erase(given.begin(), given.begin() + 2);
    return program.run();
}
