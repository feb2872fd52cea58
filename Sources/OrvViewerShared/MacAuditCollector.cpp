#include "OrvViewerShared/MacAuditCollector.h"

#include <utility>

#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Audit/AuditDetails.h"
#include "OrvViewerShared/Audit/AuditRun.h"
#include "OrvViewerShared/Audit/Battery.h"
#include "OrvViewerShared/Audit/DeviceUid.h"
#include "OrvViewerShared/Audit/Disks.h"
#include "OrvViewerShared/Audit/InstalledSoftware.h"
#include "OrvViewerShared/Audit/Peripherals.h"
#include "OrvViewerShared/Audit/RemoteTools.h"
#include "OrvViewerShared/Audit/Security.h"
#include "OrvViewerShared/Audit/SystemFacts.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"

namespace orv {

namespace {

constexpr const char* agentChannel = "macos-native";

/// What the sources of an inventory found, each with its fallback until it did.
struct Findings {
    Json patches = Json::object();
    Json peripherals = Json::array();
    Json auditDetails = Json::object();
    Json software = Json::array();
    Json security = Json::object();
    Json disks = Json::array();
    RemoteToolProbes remoteTools;
    std::string kernelVersion;
    std::string architecture;
    std::string cpu;
    std::string model;
    std::string osBuild;
    std::string battery;
    std::string memory;
    std::string bootTime;
    std::string interfaces;
};

Task<std::string> sysctlString(AuditRun& run, std::string key) {
    std::vector<std::string> arguments = {key};
    const std::string answer = co_await run.tools.text("/usr/sbin/sysctl", std::move(arguments));
    co_return sysctlValue(answer, key);
}

Task<std::string> osBuildOnWorker(AuditRun& run) {
    auto work = [root = run.root] { return osBuild(root); };
    std::string build = co_await run.workers.run(std::move(work));
    co_return build;
}

Task<Json> disks(AuditRun& run, std::function<std::vector<Volume>(const SystemRoot&)> volumes) {
    auto work = [root = run.root, volumes = std::move(volumes)] {
        return diskRecords(volumes(root));
    };
    Json records = co_await run.workers.run(std::move(work));
    co_return records;
}

Task<std::string> bootTimeAnswer(AuditRun& run) {
    std::vector<std::string> arguments = {"-n", "kern.boottime"};
    std::string answer = co_await run.tools.text("/usr/sbin/sysctl", std::move(arguments));
    co_return answer;
}

Task<std::string> memoryAnswer(AuditRun& run) {
    std::string answer = co_await run.tools.text("/usr/bin/vm_stat", {});
    co_return answer;
}

/// Longest first: whatever else there is runs beside them.
void startSlowSources(SideBySide& sources, AuditRun& run, Findings& found,
                      const std::string& systemVersion, const std::string& user) {
    sources.fill("patches", found.patches, patches(run));
    sources.fill("peripherals", found.peripherals, collectPeripherals(run, systemVersion));
    sources.fill("details", found.auditDetails, auditDetails(run));
    sources.fill("security", found.security, security(run));
    sources.fill("remote-desktop tools", found.remoteTools, probeRemoteTools(run, user));
    sources.fill("software", found.software, installedSoftware(run));
}

void startQuickSources(SideBySide& sources, AuditRun& run, Findings& found) {
    sources.fill("kernel version", found.kernelVersion, run.tools.text("/usr/bin/uname", {"-r"}));
    sources.fill("architecture", found.architecture, run.tools.text("/usr/bin/uname", {"-m"}));
    sources.fill("processor", found.cpu, sysctlString(run, "machdep.cpu.brand_string"));
    sources.fill("model", found.model, sysctlString(run, "hw.model"));
    sources.fill("system build", found.osBuild, osBuildOnWorker(run));
    sources.fill("battery", found.battery, run.tools.text("/usr/bin/pmset", {"-g", "batt"}));
    sources.fill("memory", found.memory, memoryAnswer(run));
    sources.fill("boot time", found.bootTime, bootTimeAnswer(run));
    sources.fill("interfaces", found.interfaces, run.tools.text("/sbin/ifconfig", {"-a"}));
}

/// The timestamp of a fact that may be unknown.
std::string timestampOrEmpty(std::optional<WallTime> time) {
    return time ? iso8601(*time) : std::string();
}

void addFindings(Json& body, Findings& found, WallTime now) {
    const std::optional<WallTime> bootTime = parseBootTime(found.bootTime);
    body["device_type"] = hasBattery(found.battery) ? "laptop" : "workstation";
    body["os_build"] = std::move(found.osBuild);
    body["kernel_version"] = std::move(found.kernelVersion);
    body["architecture"] = std::move(found.architecture);
    body["cpu"] = std::move(found.cpu);
    body["ram_used_bytes"] = memoryUsage(found.memory).value_or(0);
    body["monitoring"] = {{"source", "orv-viewer-macos-native"}, {"collected_at", iso8601(now)}};
    body["disks"] = std::move(found.disks);
    body["mac_addresses"] = macAddresses(found.interfaces);
    body["peripherals"] = std::move(found.peripherals);
    body["model"] = std::move(found.model);
    body["uptime_seconds"] = uptimeSeconds(bootTime, now);
    body["boot_time"] = timestampOrEmpty(bootTime);
    body["battery"] = batteryObject(found.battery);
    body["security"] = std::move(found.security);
    body["patches"] = std::move(found.patches);
    body["audit"] = std::move(found.auditDetails);
    body["software"] = std::move(found.software);
    found.remoteTools.addToInventory(body);
}

}  // namespace

MacAuditCollector::MacAuditCollector(Parts givenParts) : parts(std::move(givenParts)) {
}

AuditRun MacAuditCollector::newRun() const {
    const ViewerLogger& logger = parts.logger;
    auto report = [&logger](const std::string& topic, const std::exception& error) {
        logger.error(error, "Inventory topic failed: " + topic);
    };
    return {AuditTools(parts.shell), parts.workers, parts.root, parts.executor, report};
}

DeviceFacts MacAuditCollector::deviceFacts() const {
    DeviceFacts facts;
    facts.hostname = parts.hostFacts.hostName();
    facts.deviceUid = buildDeviceUid(facts.hostname, parts.hostFacts.serialNumber(),
                                     parts.hostFacts.platformUuid());
    const std::optional<ConsoleUser> user = parts.hostFacts.consoleUser();
    if (user) facts.loggedInUser = user->name;
    return facts;
}

Task<Json> MacAuditCollector::collect() {
    const DeviceFacts facts = deviceFacts();
    const std::string user = facts.loggedInUser.value_or("");
    AuditRun run = newRun();
    Findings found;
    SideBySide sources(run);
    startSlowSources(sources, run, found, parts.hostFacts.systemVersion(), user);
    startQuickSources(sources, run, found);
    sources.fill("disks", found.disks, disks(run, parts.volumes));
    co_await sources.join();

    Json body = inventoryBasis(facts);
    addFindings(body, found, parts.clock.now());
    co_return body;
}

/// The entries that no tool is needed for.
Json MacAuditCollector::inventoryBasis(const DeviceFacts& facts) const {
    const std::string viewerToken = parts.settings.normalizedViewerToken();
    return {
        {"device_uid", facts.deviceUid},
        {"hostname", facts.hostname},
        {"display_name", parts.hostFacts.computerName()},
        {"os_name", "macOS"},
        {"os_version", parts.hostFacts.systemVersion()},
        {"cpu_cores", parts.hostFacts.processorCount()},
        {"ram_bytes", parts.hostFacts.physicalMemoryBytes()},
        {"ip_addresses", parts.hostFacts.ipAddresses()},
        {"logged_in_user", facts.loggedInUser.value_or("")},
        {"agent_version", MacViewerBuildInfo::version},
        {"agent_channel", agentChannel},
        {"serial_number", parts.hostFacts.serialNumber().value_or("")},
        {"manufacturer", "Apple"},
        {"tags", Json::array()},
        {"status", "online"},
        {"health_status", "unknown"},
        {"viewer_token", viewerToken},
        {"viewerToken", viewerToken},
    };
}

Task<Json> MacAuditCollector::heartbeatPayload(ViewerState state) {
    const DeviceFacts facts = deviceFacts();
    AuditRun run = newRun();
    RemoteToolProbes remoteTools;
    std::string memory;
    std::string bootTime;
    SideBySide sources(run);
    sources.fill("remote-desktop tools", remoteTools,
                 probeRemoteTools(run, facts.loggedInUser.value_or("")));
    sources.fill("memory", memory, memoryAnswer(run));
    sources.fill("boot time", bootTime, bootTimeAnswer(run));
    co_await sources.join();

    Json body = heartbeatBasis(facts, state);
    body["ram_used_bytes"] = memoryUsage(memory).value_or(0);
    body["uptime_seconds"] = uptimeSeconds(parseBootTime(bootTime), parts.clock.now());
    remoteTools.addToHeartbeat(body);
    co_return body;
}

Json MacAuditCollector::heartbeatBasis(const DeviceFacts& facts, const ViewerState& state) const {
    Json body = {
        {"device_uid", facts.deviceUid},
        {"hostname", facts.hostname},
        {"agent_version", MacViewerBuildInfo::version},
        {"agent_channel", agentChannel},
        {"status", "online"},
        {"ip_addresses", parts.hostFacts.ipAddresses()},
        {"cpu_load_percent",
         cpuLoadPercent(parts.hostFacts.oneMinuteLoad(), parts.hostFacts.activeProcessorCount())},
        {"monitoring", {{"update_status", nullptr}}},
    };
    if (state.deviceUid) body["server_assigned_id"] = *state.deviceUid;
    if (state.supportId) body["support_id"] = *state.supportId;
    if (facts.loggedInUser) body["logged_in_user"] = *facts.loggedInUser;
    return body;
}

}  // namespace orv
