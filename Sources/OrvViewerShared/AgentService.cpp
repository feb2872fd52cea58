#include "OrvViewerShared/AgentService.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/TaskGroup.h"
#include "OrvViewerShared/ChatRelay.h"
#include "OrvViewerShared/CommandPipeline.h"
#include "OrvViewerShared/Commands/CommandTable.h"
#include "OrvViewerShared/Commands/FileCommands.h"
#include "OrvViewerShared/Commands/NotifyCommand.h"
#include "OrvViewerShared/Commands/ShellCommand.h"
#include "OrvViewerShared/Commands/UninstallCommand.h"
#include "OrvViewerShared/Commands/UpdateCommand.h"
#include "OrvViewerShared/ControlChannel.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "OrvViewerShared/IpScanner.h"
#include "OrvViewerShared/MacAuditCollector.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/RemoteSessionAgent.h"
#include "OrvViewerShared/Shell.h"
#include "OrvViewerShared/Update/UpdateCheck.h"
#include "OrvViewerShared/Update/UpdateLoops.h"
#include "OrvViewerShared/Update/UpdaterJob.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "OrvViewerShared/ViewerState.h"

namespace orv {

namespace {

/// The loops do not look at outcomes: what failed has been logged and recorded.
Task<void> ignoringOutcome(Task<AgentOperationOutcome> operation) {
    co_await std::move(operation);
}

}  // namespace

/// In the order in which they are built; each uses only what stands above it.
struct AgentService::Components {
    Components(ViewerSettings given, AgentEnvironment surroundings);

    void lookWhetherTheMachineSlept();

    ViewerSettings settings;
    AgentEnvironment environment;
    ViewerStateFile stateFile;
    AgentConnectionState connectionState;
    Shell shell;
    MacAuditCollector collector;
    DeviceTokenStore tokenStore;
    OrvDeskApiClient apiClient;
    RemoteSessionAgent remoteAgent;
    ControlChannel controlChannel;
    DeviceRegistration registration;
    ShellCommand shellCommand;
    FileCommands fileCommands;
    IpScanner ipScanner;
    RemoteChatStore chatStore;
    ChatRelay chatRelay;
    NotifyCommand notifyCommand;
    UninstallCommand uninstallCommand;
    ViewerUpdateCoordinator updateCoordinator;
    UpdaterJob updaterJob;
    UpdateCheck updateCheck;
    UpdateLoops updateLoops;
    UpdateCommand updateCommand;
    CommandPipeline pipeline;
    SystemWake systemWake;
    TaskGroup tasks;  // the first to go: they use everything else

    Task<void> startRelay(std::string reason);
};

AgentService::Components::Components(ViewerSettings given, AgentEnvironment surroundings)
    : settings(std::move(given)),
      environment(std::move(surroundings)),
      stateFile(environment.root, environment.logger),
      connectionState(stateFile, environment.clock),
      shell(environment.processes, environment.root),
      collector({settings, shell, environment.hostFacts, environment.clock, environment.workers,
                 environment.logger, environment.root, environment.executor}),
      tokenStore(stateFile),
      apiClient({settings, environment.http, tokenStore, environment.clock}),
      remoteAgent({environment.webSockets, apiClient, environment.logger}),
      controlChannel(
          {settings, apiClient, environment.webSockets, environment.clock, environment.logger,
           [this](RemoteSessionRequest request) { return remoteAgent.handle(std::move(request)); },
           [this](const std::exception& error) { connectionState.record(error); }}),
      registration({collector, apiClient, stateFile, environment.logger, environment.clock}),
      shellCommand({environment.processes, environment.clock, environment.root}),
      fileCommands({environment.workers, environment.clock, environment.root}),
      ipScanner({environment.executor, environment.processes, environment.clock, environment.root}),
      chatStore(environment.root, environment.clock, environment.logger),
      chatRelay({environment.executor, chatStore, registration, apiClient, environment.workers,
                 environment.logger}),
      notifyCommand(
          {chatStore, registration, environment.workers, environment.clock, environment.logger}),
      uninstallCommand(
          {environment.processes, environment.root, environment.clock, environment.logger}),
      updateCoordinator({environment.root, environment.clock, environment.logger}),
      updaterJob({environment.root, environment.processes, environment.clock, environment.logger,
                  updateCoordinator, settings.serverBaseUrl}),
      updateCheck({updateCoordinator, apiClient, updaterJob, environment.clock}),
      updateLoops(
          {updateCoordinator, updateCheck, environment.clock, environment.logger,
           [this](const std::exception& error) { registration.recordConnectionError(error); }}),
      updateCommand(updateCheck),
      pipeline({commandTable({registration, ipScanner, notifyCommand, shellCommand, updateCommand,
                              fileCommands, uninstallCommand}),
                registration, apiClient, environment.logger,
                [this](std::string reason) { return startRelay(std::move(reason)); }}),
      systemWake(environment.timeAsleep),
      tasks(environment.executor, [this](const std::string& name, const std::exception& error) {
          environment.logger.error(error, fmt::format("The {} ended", name));
      }) {
}

void AgentService::Components::lookWhetherTheMachineSlept() {
    const auto slept = systemWake.sleptSinceLastLook();
    if (!slept) return;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(*slept).count();
    environment.logger.info(fmt::format("The machine woke after {} s.", seconds));
    controlChannel.machineWoke();
}

// However many replies wait, and however slowly the server takes them: the next command does not
// wait for them.
Task<void> AgentService::Components::startRelay(std::string reason) {
    tasks.spawn("chat relay", chatRelay.sendPendingChatMessages(std::move(reason)));
    co_return;
}

AgentService::AgentService(ViewerSettings settings, AgentEnvironment environment)
    : components(std::make_unique<Components>(std::move(settings), std::move(environment))) {
}

AgentService::~AgentService() = default;

Task<void> AgentService::runOnce() {
    co_await components->registration.sendInventory("manual_once");
    co_await components->registration.sendHeartbeat("manual_once");
}

Task<void> AgentService::runForever() {
    components->environment.logger.info("Wsparo Brenvox macOS daemon started.");
    co_await startUp();
    startLoops();
    co_await components->tasks.join();
}

Task<void> AgentService::startUp() {
    if (!components->registration.isRegistered()) {
        co_await components->registration.sendInventory("initial_registration");
    }
    co_await components->registration.sendHeartbeat("startup");
}

void AgentService::startLoops() {
    Components& all = *components;
    const auto everyPeriod = [&](const char* name, std::chrono::seconds period,
                                 std::function<Task<void>()> action) {
        // Whichever loop is due first after the machine's waking notices it.
        auto lookAndAct = [&all, action = std::move(action)] {
            all.lookWhetherTheMachineSlept();
            return action();
        };
        all.tasks.spawn(name, periodicLoop(all.environment.clock, period, std::move(lookAndAct)));
    };
    const std::chrono::seconds chatPeriod{all.settings.chatPollIntervalSeconds};

    everyPeriod("audit loop", auditPeriod(all.settings),
                [&all] { return ignoringOutcome(all.registration.sendInventory("timer")); });
    everyPeriod("heartbeat loop", std::chrono::seconds(all.settings.heartbeatIntervalSeconds),
                [&all] { return ignoringOutcome(all.registration.sendHeartbeat("timer")); });
    everyPeriod("command poll loop", std::chrono::seconds(all.settings.commandPollIntervalSeconds),
                [&all] { return all.pipeline.processPendingCommands(std::nullopt, "timer"); });
    everyPeriod("notification poll loop", chatPeriod, [&all] {
        return all.pipeline.processPendingCommands("user_notify", "chat_timer");
    });
    everyPeriod("chat relay loop", chatPeriod,
                [&all] { return all.chatRelay.sendPendingChatMessages("timer"); });
    all.tasks.spawn("automatic update loop", all.updateLoops.autoUpdateLoop());
    all.tasks.spawn("update request loop", all.updateLoops.manualUpdateRequestLoop());
    all.tasks.spawn(
        "control channel",
        all.controlChannel.runForever(
            [&all] { return all.registration.identity(); },
            [&all] { return all.pipeline.processPendingCommands(std::nullopt, "control"); }));
}

Task<void> periodicLoop(Clock& clock, std::chrono::seconds period,
                        std::function<Task<void>()> action) {
    constexpr std::chrono::seconds century = std::chrono::hours(24) * 36'525;
    const std::chrono::nanoseconds pause = std::min(period, century);
    for (;;) {
        co_await clock.sleepFor(pause);
        co_await action();
    }
}

std::chrono::seconds auditPeriod(const ViewerSettings& settings) {
    constexpr std::int64_t minutesPerCentury = std::int64_t{36'525} * 24 * 60;
    return std::chrono::minutes(
        std::clamp<std::int64_t>(settings.auditIntervalMinutes, 5, minutesPerCentury));
}

}  // namespace orv
