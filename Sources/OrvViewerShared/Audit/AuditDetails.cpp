#include "OrvViewerShared/Audit/AuditDetails.h"

#include <algorithm>
#include <utility>

#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/SystemProfiler.h"

namespace orv {

namespace {

constexpr std::size_t maximumListedNames = 200;

struct Details {
    Json hardware = Json::object();
    std::string users;
    std::string printers;
    std::vector<std::string> daemons;
    std::vector<std::string> agents;
};

Json objectOf(Details details) {
    return {
        {"system_profiler", std::move(details.hardware)},
        {"local_users", std::move(details.users)},
        {"printers", std::move(details.printers)},
        {"launch_daemons", std::move(details.daemons)},
        {"launch_agents", std::move(details.agents)},
        {"remote_capabilities", remoteCapabilities()},
    };
}

Task<Json> hardwareOverview(AuditRun& run) {
    std::vector<std::string> types = {"SPHardwareDataType"};
    Json answer = co_await systemProfilerJson(run, std::move(types));
    if (!answer.is_object()) answer = Json::object();
    co_return answer;
}

Task<std::vector<std::string>> listingOnWorker(AuditRun& run, std::string folder) {
    auto work = [location = run.root.locate(folder)] {
        return directoryListing(location, maximumListedNames);
    };
    std::vector<std::string> names = co_await run.workers.run(std::move(work));
    co_return names;
}

}  // namespace

std::vector<std::string> directoryListing(const std::string& location, std::size_t maximumCount) {
    std::vector<std::string> names;
    try {
        for (DirectoryEntry& entry : readDirectory(location)) {
            names.push_back(replacingInvalidUtf8(entry.name));
        }
    } catch (const FileError&) {
        return {};
    }
    std::sort(names.begin(), names.end());
    if (names.size() > maximumCount) names.resize(maximumCount);
    return names;
}

Json remoteCapabilities() {
    return {
        {"capabilities",
         {{"screen_capture", true},
          {"webrtc", true},
          {"input", true},
          {"clipboard", "NSPasteboard"}}},
        {"notes",
         {"requires GoogleWebRTC XCFramework",
          "Accessibility/Input Monitoring permissions required"}},
    };
}

Task<Json> auditDetails(AuditRun& run) {
    Details details;
    SideBySide sources(run);
    sources.fill("hardware overview", details.hardware, hardwareOverview(run));
    sources.fill("local users", details.users,
                 run.tools.text("/usr/bin/dscl", {".", "-list", "/Users"}));
    sources.fill("printers", details.printers, run.tools.text("/usr/bin/lpstat", {"-p"}));
    sources.fill("launch daemons", details.daemons, listingOnWorker(run, "/Library/LaunchDaemons"));
    sources.fill("launch agents", details.agents, listingOnWorker(run, "/Library/LaunchAgents"));
    co_await sources.join();
    co_return objectOf(std::move(details));
}

}  // namespace orv
