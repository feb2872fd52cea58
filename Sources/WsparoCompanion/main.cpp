#include "WsparoCompanion/CompanionProgram.h"

int main(int argumentCount, char** arguments) {
    return orv::companion::CompanionProgram::ofThisProcess(argumentCount, arguments).run();
}
