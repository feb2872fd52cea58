#pragma once

#include <vector>

#include "OrvViewerShared/CommandPipeline.h"
#include "OrvViewerShared/Commands/FileCommands.h"
#include "OrvViewerShared/Commands/NotifyCommand.h"
#include "OrvViewerShared/Commands/ShellCommand.h"
#include "OrvViewerShared/Commands/UninstallCommand.h"
#include "OrvViewerShared/Commands/UpdateCommand.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/IpScanner.h"

namespace orv {

/// Who carries out the commands; everything outlives the table.
struct CommandHandlers {
    DeviceRegistration& registration;
    IpScanner& ipScanner;
    NotifyCommand& notify;
    ShellCommand& shell;
    UpdateCommand& update;
    FileCommands& files;
    UninstallCommand& uninstall;
};

/// Every command type that this agent knows, with its handler.
std::vector<CommandRoute> commandTable(CommandHandlers handlers);

}  // namespace orv
