#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// One row of the dispatch table.
struct CommandRoute {
    using Handler = std::function<Task<CommandResult>(AgentCommand)>;

    std::string type;  // compared exactly
    Handler handler;   // throws what the command fails with
    /// For commands whose completion ends or replaces the daemon: the result that goes out as
    /// "picked_up" before the handler starts.
    std::optional<Json> pickedUpResult = std::nullopt;
    std::string finalStatus = "completed";
};

/// Fetches the commands that consultants queued, runs each by its type and reports its status and
/// result. Fetches of several triggers may overlap: what one of them has in hand, the others leave
/// alone, so that a command runs once.
class CommandPipeline {
public:
    /// Called after every successful fetch, with a reason for the log. Whatever takes long there
    /// holds up the next fetch of the same trigger.
    using ChatRelay = std::function<Task<void>(std::string reason)>;

    struct Parts {
        std::vector<CommandRoute> routes;
        DeviceRegistration& registration;
        OrvDeskApiClient& apiClient;
        const ViewerLogger& logger;
        ChatRelay sendPendingChatMessages;
    };

    explicit CommandPipeline(Parts parts);

    /// Handles the pending commands (of one type, if given) in the server's order, each awaited
    /// before the next. Failures are logged and reported; only cancellation is thrown.
    Task<void> processPendingCommands(std::optional<std::string> commandType, std::string reason);

private:
    /// A request for commands on its way. What is reported in the meantime may still be in its
    /// answer, and is not to be run again for that.
    struct Fetch {
        std::set<std::int64_t> reportedMeanwhile;
    };

    Task<std::optional<std::vector<AgentCommand>>> fetch(std::string deviceUid,
                                                         std::optional<std::string> commandType);
    Task<void> handleInOrder(std::vector<AgentCommand> commands);
    Task<void> handle(AgentCommand command);
    Task<void> execute(AgentCommand command);
    Task<void> reportFailure(AgentCommand command, std::string description);
    std::vector<AgentCommand> claim(std::vector<AgentCommand> commands, const Fetch& fetch);
    void release(std::int64_t id);
    const CommandRoute* routeFor(const std::string& type) const;

    Parts parts;
    std::set<std::int64_t> inHand;
    std::list<Fetch> fetches;
};

}  // namespace orv
