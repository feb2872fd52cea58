// The agent over a folder that looks like a Mac, for development and tests:
//
//     wsparo-agent-dev --root DIR [--version | --once]

#include <cstdio>
#include <filesystem>

#include "OrvViewerShared/AgentProgram.h"

namespace {

constexpr int usageError = 64;

}  // namespace

int main(int argumentCount, char** arguments) {
    orv::AgentProgram program = orv::AgentProgram::ofThisProcess(argumentCount, arguments);
    std::vector<std::string>& given = program.arguments;
    if (given.size() < 2 || given[0] != "--root") {
        std::fputs("usage: wsparo-agent-dev --root DIR [--version | --once]\n", stderr);
        return usageError;
    }
    program.root = orv::SystemRoot(std::filesystem::absolute(given[1]).lexically_normal().string());
    given.erase(given.begin(), given.begin() + 2);
    return program.run();
}
