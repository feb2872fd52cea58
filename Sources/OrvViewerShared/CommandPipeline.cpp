#include "OrvViewerShared/CommandPipeline.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/AtScopeEnd.h"
#include "OrvPlatform/Cancellation.h"

namespace orv {

CommandPipeline::CommandPipeline(Parts given) : parts(std::move(given)) {
}

Task<void> CommandPipeline::processPendingCommands(std::optional<std::string> commandType,
                                                   std::string reason) {
    const std::optional<std::string> deviceUid = parts.registration.deviceUid();
    if (!deviceUid) co_return;
    std::optional<std::vector<AgentCommand>> commands = co_await fetch(*deviceUid, commandType);
    if (!commands) co_return;
    if (!commands->empty()) {
        parts.logger.info(fmt::format("Processing {} pending commands. reason={} type={}",
                                      commands->size(), reason, commandType.value_or("all")));
        co_await handleInOrder(std::move(*commands));
    }
    co_await parts.sendPendingChatMessages("commands_" + reason);
}

Task<std::optional<std::vector<AgentCommand>>> CommandPipeline::fetch(
    std::string deviceUid, std::optional<std::string> commandType) {
    const auto current = fetches.emplace(fetches.end());
    const AtScopeEnd forget([this, current] { fetches.erase(current); });
    try {
        std::vector<AgentCommand> commands =
            co_await parts.apiClient.pendingCommands(deviceUid, commandType);
        co_return claim(std::move(commands), *current);
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, "Command polling failed");
        co_return std::nullopt;
    }
}

std::vector<AgentCommand> CommandPipeline::claim(std::vector<AgentCommand> commands,
                                                 const Fetch& fetch) {
    std::erase_if(commands, [&](const AgentCommand& command) {
        return fetch.reportedMeanwhile.contains(command.id) || !inHand.insert(command.id).second;
    });
    return commands;
}

void CommandPipeline::release(std::int64_t id) {
    inHand.erase(id);
    for (Fetch& fetch : fetches)
        fetch.reportedMeanwhile.insert(id);
}

Task<void> CommandPipeline::handleInOrder(std::vector<AgentCommand> commands) {
    std::vector<std::int64_t> ids;
    for (const AgentCommand& command : commands)
        ids.push_back(command.id);
    // Also when the task is cancelled half-way: what was not begun is free for the next fetch.
    const AtScopeEnd releaseAll([this, &ids] {
        for (const std::int64_t id : ids)
            release(id);
    });
    for (AgentCommand& command : commands) {
        const std::int64_t id = command.id;
        co_await handle(std::move(command));
        release(id);
    }
}

Task<void> CommandPipeline::handle(AgentCommand command) {
    std::string description;
    try {
        co_await execute(command);
        co_return;
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        description = error.what();
        parts.logger.error(error, fmt::format("Command handling failed id={} type={}", command.id,
                                              command.commandType));
        parts.registration.recordConnectionError(error);
    }
    co_await reportFailure(std::move(command), std::move(description));
}

Task<void> CommandPipeline::execute(AgentCommand command) {
    const CommandRoute* route = routeFor(command.commandType);
    if (route == nullptr) {
        Json result{{"error", "Unsupported macOS command " + command.commandType}};
        co_await parts.apiClient.updateCommand(command.id, "failed", std::move(result));
        co_return;
    }
    const std::int64_t id = command.id;
    if (route->pickedUpResult) {
        Json pickedUp = *route->pickedUpResult;
        co_await parts.apiClient.updateCommand(id, "picked_up", std::move(pickedUp));
    }
    CommandResult result = co_await route->handler(std::move(command));
    co_await parts.apiClient.updateCommand(id, route->finalStatus, std::move(result));
}

Task<void> CommandPipeline::reportFailure(AgentCommand command, std::string description) {
    try {
        Json result{{"platform", "macos"}, {"error", description}};
        co_await parts.apiClient.updateCommand(command.id, "failed", std::move(result));
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, fmt::format("Command failure report failed id={}", command.id));
    }
}

const CommandRoute* CommandPipeline::routeFor(const std::string& type) const {
    const auto found = std::find_if(parts.routes.begin(), parts.routes.end(),
                                    [&](const CommandRoute& route) { return route.type == type; });
    return found == parts.routes.end() ? nullptr : &*found;
}

}  // namespace orv
