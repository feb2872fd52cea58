#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvViewerShared/Audit/DeviceUid.h"
#include "Support/CollectorFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::Each;
using testing::HasSubstr;

using MacAuditCollectorTest = CollectorFixture;

TEST_F(MacAuditCollectorTest, collectsEveryKeyOfTheInventory) {
    laptop();
    remoteTools();

    Json body = inventory();

    EXPECT_EQ(body["software"].size(), 1U);
    EXPECT_EQ(body["software"][0]["publisher"], "Acme");
    EXPECT_EQ(body["peripherals"][0]["name"], "P");
    EXPECT_EQ(body["audit"]["local_users"], "anna");
    EXPECT_EQ(body["audit"]["printers"], "printer a is idle.");
    EXPECT_EQ(body["audit"]["system_profiler"]["SPHardwareDataType"].size(), 1U);
    EXPECT_EQ(body["remote"]["anydesk"]["id"], "111");
    EXPECT_EQ(body["remote"]["teamviewer"]["id"], "222");
    EXPECT_EQ(body["remote"]["rustdesk"]["id"], "333");
    for (const char* key : {"software", "peripherals", "audit", "remote"})
        body.erase(key);
    EXPECT_EQ(body, Json::parse(R"({
        "device_uid": ")" + buildDeviceUid("", host.serial, host.uuid) +
                                R"(",
        "hostname": "biuro-3.local", "display_name": "Księgowość 3", "device_type": "laptop",
        "os_name": "macOS", "os_version": "15.5.0", "os_build": "24F74",
        "kernel_version": "24.5.0", "architecture": "arm64", "cpu": "Apple M3", "cpu_cores": 10,
        "ram_bytes": 17179869184, "ram_used_bytes": 1638400,
        "disks": [{"name": "Dysk", "mount_point": "/", "total_bytes": 1000, "free_bytes": 400,
                   "used_bytes": 600, "file_system": "apfs"}],
        "ip_addresses": ["192.0.2.17", "fe80::1c2d"], "mac_addresses": ["a4:83:e7:00:00:01"],
        "logged_in_user": "anna", "agent_version": "0.2.55", "agent_channel": "macos-native",
        "serial_number": "C02SAMPLE1", "manufacturer": "Apple", "model": "Mac15,3",
        "uptime_seconds": 4502, "boot_time": "2026-03-01T08:00:00Z",
        "battery": {"source": "pmset", "present": true, "percent": 80, "state": "charging",
                    "time_remaining": "0:40"},
        "security": {"source": "macos-native", "firewall": "on", "filevault": "FileVault is On.",
                     "sip": "enabled."},
        "patches": {"source": "softwareupdate", "pending_raw": "Software Update Tool",
                    "last_update_at": null},
        "monitoring": {"source": "orv-viewer-macos-native",
                       "collected_at": "2026-03-01T09:15:02Z"},
        "tags": [], "status": "online", "health_status": "unknown",
        "rustdesk_id": "333", "rustdeskId": "333", "rustdesk_status": "installed",
        "rustdeskStatus": "installed", "teamviewer_id": "222", "teamviewerId": "222",
        "anydesk_id": "111", "anydeskId": "111",
        "viewer_token": "viewer-1", "viewerToken": "viewer-1"})"));
}

TEST_F(MacAuditCollectorTest, takesAsLongAsItsSlowestTool) {
    laptop();
    tool("/usr/sbin/softwareupdate", {"-l"}, "late", 5s);
    tool("/usr/sbin/system_profiler", {"SPHardwareDataType", "-json"}, "{}", 3s);
    tool("/usr/sbin/system_profiler",
         {"SPUSBDataType", "SPDisplaysDataType", "SPPrintersDataType", "-json"}, "{}", 3s);
    const MonotonicTime begin = clock.monotonicNow();

    EXPECT_EQ(inventory()["patches"]["pending_raw"], "late");

    EXPECT_EQ(clock.monotonicNow() - begin, 5s);
    EXPECT_LE(processes.mostAtOnce, 8U);
}

TEST_F(MacAuditCollectorTest, aHeartbeatDoesNotWaitForTheInventorysTools) {
    laptop();
    for (const char* executable :
         {"/usr/bin/uname", "/usr/bin/pmset", "/usr/sbin/softwareupdate", "/usr/bin/fdesetup",
          "/usr/bin/csrutil", "/usr/bin/lpstat", "/usr/sbin/system_profiler", "/sbin/ifconfig"}) {
        toolAlways(executable, {.delay = 100s});
    }
    MacAuditCollector made = collector();
    TaskGroup group(loop.executor(), [](const std::string&, const std::exception&) {});
    auto collecting = [](MacAuditCollector* from) -> Task<void> { co_await from->collect(); };
    group.spawn("inventory", collecting(&made));
    loop.runReady();

    EXPECT_EQ(loop.run(made.heartbeatPayload({}))["ram_used_bytes"], 1638400);

    group.cancel();
    loop.run(group.join());
}

TEST_F(MacAuditCollectorTest, canBeCancelled) {
    laptop();
    tool("/usr/sbin/softwareupdate", {"-l"}, "late", 50s);
    MacAuditCollector made = collector();
    TaskGroup group(loop.executor(), [](const std::string&, const std::exception& error) {
        ADD_FAILURE() << error.what();
    });
    bool hasReturned = false;
    auto collecting = [](MacAuditCollector* from, bool* returned) -> Task<void> {
        co_await from->collect();
        *returned = true;
    };
    group.spawn("inventory", collecting(&made, &hasReturned));
    loop.runReady();
    group.cancel();
    loop.run(group.join());
    EXPECT_FALSE(hasReturned);
    EXPECT_EQ(processes.running, 0U);
}

TEST_F(MacAuditCollectorTest, aFailingTopicKeepsItsFallbackAndIsLogged) {
    auto failing = [](const SystemRoot&) -> std::vector<Volume> {
        throw std::runtime_error("No disks today");
    };
    MacAuditCollector made(
        {settings, shell, host, clock, workers, logger, root, loop.executor(), failing});
    EXPECT_EQ(loop.run(made.collect())["disks"], Json::array());
    EXPECT_THAT(readFile(logger.logFile(), 100000),
                HasSubstr("[ERROR] Inventory topic failed: disks: No disks today"));
}

TEST_F(MacAuditCollectorTest, sendsOnlyKnownFactsInTheHeartbeat) {
    laptop();
    Json body = heartbeat();
    EXPECT_EQ(body, Json::parse(R"({
        "device_uid": ")" + buildDeviceUid("", host.serial, host.uuid) +
                                R"(",
        "hostname": "biuro-3.local", "agent_version": "0.2.55", "agent_channel": "macos-native",
        "status": "online", "logged_in_user": "anna",
        "ip_addresses": ["192.0.2.17", "fe80::1c2d"], "ram_used_bytes": 1638400,
        "cpu_load_percent": 25.0, "uptime_seconds": 4502,
        "monitoring": {"update_status": null}})"));
}

TEST_F(MacAuditCollectorTest, addsIdentifiersAndTheServersNamesToTheHeartbeat) {
    laptop();
    remoteTools();
    ViewerState state;
    state.deviceUid = "dev-77";
    state.supportId = "WB-12";

    const Json body = heartbeat(state);

    EXPECT_EQ(body["server_assigned_id"], "dev-77");
    EXPECT_EQ(body["support_id"], "WB-12");
    EXPECT_EQ(body["anydesk_id"], "111");
    EXPECT_EQ(body["teamviewer_id"], "222");
    EXPECT_EQ(body["rustdesk_id"], "333");
    EXPECT_EQ(body["rustdesk_status"], "installed");
}

TEST_F(MacAuditCollectorTest, leavesTheUserOutOfTheHeartbeatWhenNobodyIsLoggedIn) {
    host.user.reset();
    EXPECT_FALSE(heartbeat().contains("logged_in_user"));
}

TEST_F(MacAuditCollectorTest, avoidsTheExpensiveSourcesInTheHeartbeat) {
    laptop();
    heartbeat();
    EXPECT_THAT(calledTools(),
                Each(testing::AnyOf("/usr/bin/vm_stat", "/usr/sbin/sysctl", "/usr/bin/dscl",
                                    "/usr/bin/id", "/usr/bin/defaults", "/bin/launchctl")));
}

TEST_F(MacAuditCollectorTest, knowsTheDeviceWithoutAnyTool) {
    const DeviceFacts facts = collector().deviceFacts();
    EXPECT_EQ(facts.deviceUid, buildDeviceUid(host.host, host.serial, host.uuid));
    EXPECT_EQ(facts.hostname, "biuro-3.local");
    EXPECT_EQ(facts.loggedInUser, "anna");
    EXPECT_TRUE(processes.calls.empty());
}

}  // namespace
}  // namespace orv
