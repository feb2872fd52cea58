#include "OrvViewerShared/Commands/CommandTable.h"

#include <utility>

namespace orv {

namespace {

Task<CommandResult> forceAudit(DeviceRegistration& registration) {
    const AgentOperationOutcome outcome = co_await registration.sendInventory("force_audit");
    co_return CommandResult(Json{{"audit_sent", outcome.succeeded}});
}

Task<CommandResult> asResult(Task<Json> handler) {
    co_return CommandResult(co_await std::move(handler));
}

}  // namespace

std::vector<CommandRoute> commandTable(CommandHandlers handlers) {
    DeviceRegistration& registration = handlers.registration;
    IpScanner& ipScanner = handlers.ipScanner;
    NotifyCommand& notify = handlers.notify;
    ShellCommand& shell = handlers.shell;
    UpdateCommand& update = handlers.update;
    FileCommands& files = handlers.files;
    UninstallCommand& uninstall = handlers.uninstall;
    return {
        {"force_audit", [&registration](AgentCommand) { return forceAudit(registration); }},
        {"ip_scan",
         [&ipScanner](AgentCommand command) {
             return asResult(ipScanner.scan(std::move(command.payload)));
         }},
        {"user_notify",
         [&notify](AgentCommand command) {
             return asResult(notify.handleUserNotification(std::move(command.payload)));
         }},
        {"shell",
         [&shell](AgentCommand command) {
             return asResult(shell.executeShell(std::move(command.payload)));
         }},
        {"client_update", [&update](AgentCommand) { return asResult(update.updateClient()); },
         UpdateCommand::pickedUpResult()},
        {"file_list",
         [&files](AgentCommand command) { return files.listFiles(std::move(command.payload)); }},
        {"file_download",
         [&files](AgentCommand command) { return files.downloadFile(std::move(command.payload)); }},
        {"file_upload",
         [&files](AgentCommand command) { return files.uploadFile(std::move(command.payload)); }},
        // What it says when it is picked up is said before anything has begun.
        {"client_uninstall",
         [&uninstall](AgentCommand) { return asResult(uninstall.startSelfUninstall()); },
         Json{{"platform", "macos"}, {"uninstall_started", false}}, "uninstall_started"},
    };
}

}  // namespace orv
