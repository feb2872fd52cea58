#include <csignal>
#include <set>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/CollectorFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::IsSubsetOf;
using testing::UnorderedElementsAreArray;

using InventoryFaultsTest = CollectorFixture;

const std::vector<std::string> keysWithoutIdentifiers = {
    "device_uid",     "hostname",     "display_name",   "device_type",    "os_name",
    "os_version",     "os_build",     "kernel_version", "architecture",   "cpu",
    "cpu_cores",      "ram_bytes",    "ram_used_bytes", "disks",          "ip_addresses",
    "mac_addresses",  "peripherals",  "logged_in_user", "agent_version",  "agent_channel",
    "serial_number",  "manufacturer", "model",          "uptime_seconds", "boot_time",
    "battery",        "security",     "patches",        "monitoring",     "audit",
    "tags",           "status",       "health_status",  "software",       "rustdesk_status",
    "rustdeskStatus", "remote",       "viewer_token",   "viewerToken"};

TEST_F(InventoryFaultsTest, isCompleteWithoutAnySource) {
    host.serial.reset();
    host.uuid.reset();
    host.user.reset();
    host.addresses.clear();

    const Json body = inventory();

    EXPECT_THAT(keysOf(body), UnorderedElementsAreArray(keysWithoutIdentifiers));
    for (const char* key : {"os_build", "kernel_version", "architecture", "cpu", "model",
                            "boot_time", "serial_number", "logged_in_user"}) {
        EXPECT_EQ(body[key], "") << key;
    }
    EXPECT_EQ(body["ram_used_bytes"], 0);
    EXPECT_EQ(body["uptime_seconds"], 0);
    EXPECT_EQ(body["device_type"], "workstation");
    EXPECT_EQ(body["battery"], Json({{"source", "pmset"}}));
    EXPECT_EQ(body["rustdesk_status"], "not_installed");
    for (const char* key : {"mac_addresses", "ip_addresses", "peripherals", "software"}) {
        EXPECT_EQ(body[key], Json::array()) << key;
    }
    EXPECT_FALSE(fileExists(logger.logFile())) << "a missing source is no failure";
}

/// One way in which a tool goes wrong.
struct Misbehaviour {
    const char* name;
    ScriptedProcess process;
};

const std::vector<Misbehaviour> misbehaviours = {
    {"failing", {.standardOutput = "x", .end = Exited{1}}},
    {"crashing", {.end = Signalled{SIGSEGV}}},
    {"silent", {}},
    {"hanging", {.delay = 24h}},
    {"binary", {.standardOutput = std::string("\0\xff\xfe{[\x80", 6)}},
    {"foreign",
     {.standardOutput = "Die Anfrage wurde nicht verstanden: 12\n"
                        "未找到。\nnie ma takiego klucza = 7;\n"}},
    {"flooding", {.standardOutput = std::string(2 << 20, 'x')}}};

/// A tool, and the keys of the inventory that what it says goes into.
struct Source {
    const char* tool;
    std::vector<std::string> keys;
};

const std::vector<Source> sources = {
    {"/usr/bin/uname", {"kernel_version", "architecture"}},
    {"/usr/sbin/sysctl", {"cpu", "model", "boot_time"}},
    {"/usr/bin/vm_stat", {"ram_used_bytes"}},
    {"/usr/bin/pmset", {"battery", "device_type"}},
    {"/sbin/ifconfig", {"mac_addresses"}},
    {"/usr/libexec/ApplicationFirewall/socketfilterfw", {"security"}},
    {"/usr/bin/fdesetup", {"security"}},
    {"/usr/bin/csrutil", {"security"}},
    {"/usr/sbin/softwareupdate", {"patches"}},
    {"/usr/sbin/system_profiler", {"peripherals", "audit"}},
    {"/usr/bin/lpstat", {"audit"}},
    {"/usr/bin/dscl",
     {"audit", "remote", "rustdesk_id", "rustdeskId", "rustdesk_status", "rustdeskStatus"}},
    {"/usr/bin/defaults", {"remote", "teamviewer_id", "teamviewerId"}},
    {"/usr/bin/id", {"remote"}},
    {"/bin/launchctl", {"remote", "rustdesk_status", "rustdeskStatus"}},
    {"/usr/bin/mdls", {"software"}},
    {"/usr/bin/codesign", {"software"}}};

class MisbehavingToolsTest : public CollectorFixture,
                             public testing::WithParamInterface<Misbehaviour> {};

TEST_P(MisbehavingToolsTest, leaveTheInventoryComplete) {
    for (const Source& source : sources)
        toolAlways(source.tool, GetParam().process);
    application("/Applications/Tool.app",
                "<key>CFBundleIdentifier</key><string>com.figma.x</string>");
    file(teamViewerList, "x");
    const MonotonicTime begin = clock.monotonicNow();

    const Json body = inventory();

    EXPECT_THAT(keysOf(body), UnorderedElementsAreArray(keysWithoutIdentifiers));
    EXPECT_EQ(body["ram_used_bytes"], 0);
    EXPECT_EQ(body["cpu"], "");
    EXPECT_EQ(body["boot_time"], "");
    EXPECT_EQ(body["peripherals"], Json::array());
    EXPECT_EQ(body["remote"]["rustdesk"]["server_launch_agent_running"], false);
    EXPECT_EQ(body["remote"]["rustdesk"]["config_directory"], "");
    EXPECT_EQ(body["software"].size(), 1U);
    EXPECT_LT(clock.monotonicNow() - begin, 15min);
    EXPECT_FALSE(compactJson(body).empty());
}

INSTANTIATE_TEST_SUITE_P(Ways, MisbehavingToolsTest, testing::ValuesIn(misbehaviours),
                         [](const auto& tested) { return std::string(tested.param.name); });

class OneBadToolTest : public CollectorFixture, public testing::WithParamInterface<Source> {
protected:
    /// A Mac on which every tool has something to tell.
    void everything() {
        laptop();
        remoteTools();
        tool("/usr/bin/id", {"-u", "anna"}, "501\n");
        for (const char* service :
             {"gui/501/com.carriez.RustDesk_server", "system/com.carriez.RustDesk_service"}) {
            tool("/bin/launchctl", {"print", service}, "x = {\n\tstate = running\n}\n");
        }
        for (const char* bundle : {"/Applications/Described.app", "/Applications/Signed.app"})
            application(bundle, "<key>CFBundleVersion</key><string>1</string>");
        const std::string described = root.locate("/Applications/Described.app");
        tool("/usr/bin/mdls",
             {"-raw", "-name", "kMDItemCopyright", "-name", "kMDItemAuthors", described},
             "© 2021 Meta");
        processes.answer(root.locate("/usr/bin/codesign"),
                         {"-d", "--verbose=4", root.locate("/Applications/Signed.app")},
                         {.standardError = "Authority=Developer ID Application: Acme (AB12)\n"});
    }

    /// Without what only the clock decides.
    Json timelessInventory() {
        Json body = inventory();
        body.erase("monitoring");
        body.erase("uptime_seconds");
        return body;
    }

    static std::set<std::string> differences(const Json& one, const Json& other) {
        std::set<std::string> keys;
        for (const auto& [from, against] : {std::pair(&one, &other), std::pair(&other, &one)}) {
            for (const auto& [key, value] : from->items()) {
                if (!against->contains(key) || against->at(key) != value) keys.insert(key);
            }
        }
        return keys;
    }
};

TEST_P(OneBadToolTest, spoilsOnlyWhatItFeeds) {
    everything();
    const Json healthy = timelessInventory();
    const std::string executable = root.locate(GetParam().tool);

    processes.forget(executable);
    EXPECT_THAT(differences(healthy, timelessInventory()),
                UnorderedElementsAreArray(GetParam().keys))
        << "missing";
    for (const Misbehaviour& way : misbehaviours) {
        processes.answerAlways(executable, way.process);
        EXPECT_THAT(differences(healthy, timelessInventory()), IsSubsetOf(GetParam().keys))
            << way.name;
    }
    EXPECT_FALSE(fileExists(logger.logFile())) << "a tool that fails is no failure of ours";
}

INSTANTIATE_TEST_SUITE_P(Tools, OneBadToolTest, testing::ValuesIn(sources),
                         [](const auto& tested) { return lastPathComponent(tested.param.tool); });

}  // namespace
}  // namespace orv
