#include "OrvViewerShared/AgentProgram.h"

int main(int argumentCount, char** arguments) {
    return orv::AgentProgram::ofThisProcess(argumentCount, arguments).run();
}
