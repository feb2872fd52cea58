#include "OrvViewerShared/AgentProgram.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <signal.h>
#include <stdlib.h>

#include <fmt/format.h>

#include "OrvPlatform/BeastWebSocket.h"
#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/CoreThread.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/HttpSession.h"
#include "OrvPlatform/MainBundle.h"
#include "OrvPlatform/ProcessLimits.h"
#include "OrvPlatform/SystemProcessRunner.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/TlsTrust.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/AgentService.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerSettings.h"

namespace orv {

namespace {

// A process that is told to end has a second; what has not ended by then is cut off. Files are
// replaced as a whole, so nothing is left half-written.
constexpr std::chrono::milliseconds shutdownDeadline{900};

bool contains(const std::vector<std::string>& arguments, const char* name) {
    return std::find(arguments.begin(), arguments.end(), name) != arguments.end();
}

int runService(const ViewerSettings& settings, const SystemRoot& root, Clock& clock,
               ViewerLogger& logger, bool onlyOnce) {
    CoreThread core(shutdownDeadline, EXIT_SUCCESS);
    const auto executor = core.context.get_executor();
    const TlsTrust trust;
    HttpSessionOptions httpOptions;
    httpOptions.userAgent = "WsparoAgent/" + MacViewerBuildInfo::version;
    HttpSession http(executor, trust, systemProxyFor, httpOptions);
    BeastWebSocketConnector webSockets({trust, clock});
    SystemProcessRunner processes(executor);
    SystemHostFacts hostFacts(root);
    WorkerPool workers;
    AgentService service(
        settings, {executor, root, clock, http, webSockets, processes, hostFacts, workers, logger});
    try {
        const std::exception_ptr error =
            core.run(onlyOnce ? service.runOnce() : service.runForever());
        if (error) std::rethrow_exception(error);
    } catch (const std::exception& error) {
        if (isCancellation(error)) return EXIT_SUCCESS;
        logger.error(error, "Wsparo Brenvox macOS daemon ended");
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

}  // namespace

AgentProgram AgentProgram::ofThisProcess(int argumentCount, char** arguments) {
    AgentProgram program;
    program.arguments.assign(arguments + 1, arguments + argumentCount);
    if (const char* path = getenv(ViewerSettings::environmentVariable)) {
        program.environmentSettingsPath = path;
    }
    program.currentDirectory = orv::currentDirectory();
    program.mainBundlePath = orv::mainBundlePath();
    return program;
}

int AgentProgram::run() const {
    if (contains(arguments, "--version")) {
        std::printf("%s\n", MacViewerBuildInfo::version.c_str());
        return EXIT_SUCCESS;
    }
    signal(SIGPIPE, SIG_IGN);
    raiseDescriptorLimit();
    SystemClock clock;
    ViewerLogger logger(root, clock);
    ViewerSettings settings;
    try {
        settings =
            ViewerSettings::load({root, environmentSettingsPath, currentDirectory, mainBundlePath});
    } catch (const std::exception& error) {
        logger.error(error, "Wsparo Brenvox macOS daemon failed to start");
        const std::string line = fmt::format("Wsparo Brenvox daemon failed: {}\n", error.what());
        std::fwrite(line.data(), 1, line.size(), stderr);
        return EXIT_FAILURE;
    }
    return runService(settings, root, clock, logger, contains(arguments, "--once"));
}

}  // namespace orv
