#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/SystemWake.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/WebSocket.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerSettings.h"

namespace orv {

/// What the service stands on; everything outlives it.
struct AgentEnvironment {
    asio::any_io_executor executor;
    SystemRoot root;
    Clock& clock;
    HttpClient& http;
    WebSocketConnector& webSockets;
    ProcessRunner& processes;
    HostFacts& hostFacts;
    WorkerPool& workers;
    ViewerLogger& logger;
    SystemWake::Asleep timeAsleep = orv::timeAsleep;
};

/// Owns the agent's components and its eight loops for the life of the process.
class AgentService {
public:
    AgentService(ViewerSettings settings, AgentEnvironment environment);
    ~AgentService();
    AgentService(const AgentService&) = delete;
    AgentService& operator=(const AgentService&) = delete;

    /// The start-up exchange, then the loops; returns only by the cancellation error, when every
    /// loop has ended.
    Task<void> runForever();

    /// One inventory and one heartbeat, whatever becomes of the inventory.
    Task<void> runOnce();

private:
    struct Components;

    Task<void> startUp();
    void startLoops();

    std::unique_ptr<Components> components;
};

/// Sleeps first and then acts, until the task is cancelled; an action handles its own failures.
/// A period too long for the clock counts as a century.
Task<void> periodicLoop(Clock& clock, std::chrono::seconds period,
                        std::function<Task<void>()> action);

/// The audit loop's period: never under five minutes, whatever the settings say.
std::chrono::seconds auditPeriod(const ViewerSettings& settings);

}  // namespace orv
