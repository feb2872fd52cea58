#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/RemoteTools.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Not;

class RemoteToolsTest : public AuditFixture {
protected:
    /// Somebody logged in, with a home folder and a numeric identifier.
    RemoteToolsTest() {
        folder("/Users/anna");
        tool("/usr/bin/dscl", {".", "-read", "/Users/anna", "NFSHomeDirectory"},
             "NFSHomeDirectory: /Users/anna\n");
        tool("/usr/bin/id", {"-u", "anna"}, "501\n");
    }

    RemoteToolProbes probe(const std::string& user = "anna") {
        AuditRun run = newRun();
        return loop.run(probeRemoteTools(run, user));
    }

    void service(const std::string& target, const std::string& state) {
        tool("/bin/launchctl", {"print", target},
             target + " = {\n\tactive count = 1\n\tstate = " + state +
                 "\n\n\tjob state = running\n}\n");
    }

    void preferences(const std::string& path, const std::string& printed) {
        file(path, "binary");
        tool("/usr/bin/defaults", {"read", root.locate(path)}, printed);
    }

    const std::string rustDeskFolder = "/Users/anna/Library/Preferences/com.carriez.RustDesk";
};

TEST_F(RemoteToolsTest, nothingIsInstalled) {
    const RemoteToolProbes found = probe();
    EXPECT_EQ(found.anyDesk, parseJson(R"({"provider": "anydesk", "installed": false,
                                           "configuration_paths": []})"));
    EXPECT_EQ(found.teamViewer, parseJson(R"({"provider": "teamviewer", "installed": false,
                                              "preference_paths": []})"));
    EXPECT_EQ(found.rustDesk, parseJson(R"({
        "provider": "rustdesk", "installed": false, "status": "not_installed",
        "app_path": "/Applications/RustDesk.app", "console_user": "anna",
        "config_directory": "/Users/anna/Library/Preferences/com.carriez.RustDesk",
        "server_launch_agent_running": false, "service_launch_daemon_running": false})"));
    EXPECT_THAT(calledTools(), Not(Contains("/usr/bin/defaults")));
}

TEST_F(RemoteToolsTest, anyDeskIsKnownByItsApplicationOrItsFiles) {
    folder("/Applications/AnyDesk.app");
    EXPECT_EQ(probe().anyDesk["installed"], true);
    std::filesystem::remove(root.locate("/Applications/AnyDesk.app"));
    file("/etc/anydesk/service.conf", "");
    EXPECT_EQ(probe().anyDesk, parseJson(R"({"provider": "anydesk", "installed": true,
        "configuration_paths": ["/etc/anydesk/service.conf"]})"));
}

TEST_F(RemoteToolsTest, theFirstAnyDeskFileWithAnIdentifierWins) {
    file("/etc/anydesk/service.conf", "ad.license.name=free-1\n");
    file("/Library/Application Support/AnyDesk/service.conf", "client_id=22\n");
    file("/etc/anydesk/system.conf", "ad.anynet.id=33\n");
    file("/Users/anna/.anydesk/service.conf", "ad.anynet.id=44\n");
    file("/Users/anna/.anydesk/system.conf", "ad.anynet.id=55\n");

    const Json found = probe().anyDesk;

    EXPECT_EQ(found["id"], "22");
    EXPECT_THAT(
        found["configuration_paths"],
        ElementsAre("/etc/anydesk/service.conf",
                    "/Library/Application Support/AnyDesk/service.conf", "/etc/anydesk/system.conf",
                    "/Users/anna/.anydesk/service.conf", "/Users/anna/.anydesk/system.conf"));
}

TEST_F(RemoteToolsTest, anyDeskKeepsItsIdentifierInTheUsersSystemFile) {
    file("/Users/anna/.anydesk/service.conf", "ad.anynet.cur_version=1\n");
    file("/Users/anna/.anydesk/system.conf", "ad.anynet.id=55\n");
    EXPECT_EQ(probe().anyDesk["id"], "55");
}

TEST_F(RemoteToolsTest, aUsersLinkIsNotFollowed) {
    file("/secret", "ad.anynet.id=1\n");
    folder("/Users/anna/.anydesk");
    ASSERT_EQ(::symlink(root.locate("/secret").c_str(),
                        root.locate("/Users/anna/.anydesk/system.conf").c_str()),
              0);
    EXPECT_FALSE(probe().anyDesk.contains("id"));
}

TEST_F(RemoteToolsTest, teamViewerIsKnownByAnyOfItsApplications) {
    for (const char* path : {"/Applications/TeamViewer.app", "/Applications/TeamViewer Host.app",
                             "/Applications/TeamViewerHost.app"}) {
        folder(path);
        EXPECT_EQ(probe().teamViewer["installed"], true) << path;
        std::filesystem::remove(root.locate(path));
    }
    EXPECT_EQ(probe().teamViewer["installed"], false);
}

TEST_F(RemoteToolsTest, teamViewersFirstIdentifierWins) {
    const std::string name = "/Library/Preferences/com.teamviewer.teamviewer.preferences";
    preferences(name + ".plist", "{\n    Version = 15;\n}");
    preferences(name + ".Machine.plist", "{\n    ClientID = 222;\n}");
    preferences("/Users/anna" + name + ".plist", "{\n    ClientID = 333;\n}");

    const Json found = probe().teamViewer;

    EXPECT_EQ(found["id"], "222");
    EXPECT_EQ(found["installed"], true);
    EXPECT_THAT(found["preference_paths"], ElementsAre(name + ".plist", name + ".Machine.plist",
                                                       "/Users/anna" + name + ".plist"));
}

TEST_F(RemoteToolsTest, anUnreadablePreferenceListIsPassedOver) {
    const std::string name = "/Library/Preferences/com.teamviewer.teamviewer.preferences";
    file(name + ".plist", "damaged");
    preferences("/Users/anna" + name + ".Machine.plist", "{\n    ClientID = 333;\n}");
    EXPECT_EQ(probe().teamViewer["id"], "333");
}

TEST_F(RemoteToolsTest, rustDeskIsOnlineWhenItRunsAndHasAnIdentifier) {
    folder("/Applications/RustDesk.app");
    file(rustDeskFolder + "/RustDesk.toml", "enc_id = 'x'\n");
    file(rustDeskFolder + "/RustDesk2.toml", "id = '765'\n");
    service("gui/501/com.carriez.RustDesk_server", "running");
    service("system/com.carriez.RustDesk_service", "not running");

    const Json found = probe().rustDesk;

    EXPECT_EQ(found["status"], "online");
    EXPECT_EQ(found["id"], "765");
    EXPECT_EQ(found["server_launch_agent_running"], true);
    EXPECT_EQ(found["service_launch_daemon_running"], false);
}

TEST_F(RemoteToolsTest, rustDesksFilesAreReadInTheirOrder) {
    folder("/Applications/RustDesk.app");
    for (const char* name : {"default", "local", "2", ""}) {
        const std::string infix = std::string(name).size() > 1 ? "_" : "";
        file(rustDeskFolder + "/RustDesk" + infix + name + ".toml",
             "id = 'from" + std::string(name) + "'\n");
        EXPECT_EQ(probe().rustDesk["id"], "from" + std::string(name));
    }
}

TEST_F(RemoteToolsTest, rustDesksDaemonAloneCountsAsRunning) {
    folder("/Applications/RustDesk.app");
    service("system/com.carriez.RustDesk_service", "running");
    EXPECT_EQ(probe().rustDesk["status"], "running_no_id");
}

TEST(RustDeskStatusTest, followsFromWhatIsThere) {
    EXPECT_EQ(rustDeskStatus(true, true, true), "online");
    EXPECT_EQ(rustDeskStatus(true, true, false), "running_no_id");
    EXPECT_EQ(rustDeskStatus(true, false, true), "installed");
    EXPECT_EQ(rustDeskStatus(true, false, false), "installed_no_id");
    EXPECT_EQ(rustDeskStatus(false, true, true), "not_installed");
}

TEST_F(RemoteToolsTest, withNobodyLoggedInOnlySystemWidePlacesAreLookedAt) {
    folder("/Applications/RustDesk.app");
    file("/Users/anna/.anydesk/system.conf", "ad.anynet.id=55\n");
    file(rustDeskFolder + "/RustDesk.toml", "id = '1'\n");
    service("system/com.carriez.RustDesk_service", "running");

    const RemoteToolProbes found = probe("");

    EXPECT_EQ(found.anyDesk["installed"], false);
    EXPECT_EQ(found.rustDesk, parseJson(R"({
        "provider": "rustdesk", "installed": true, "status": "running_no_id",
        "app_path": "/Applications/RustDesk.app", "console_user": "", "config_directory": "",
        "server_launch_agent_running": false, "service_launch_daemon_running": true})"));
    EXPECT_THAT(calledTools(), ElementsAre("/bin/launchctl"));
}

TEST_F(RemoteToolsTest, aHomeFolderThatIsNotThereIsNone) {
    tool("/usr/bin/dscl", {".", "-read", "/Users/jan", "NFSHomeDirectory"},
         "NFSHomeDirectory: /Users/jan");
    EXPECT_EQ(probe("jan").rustDesk["config_directory"], "");
    folder("/Users/jan");
    EXPECT_EQ(probe("jan").rustDesk["config_directory"],
              "/Users/jan/Library/Preferences/com.carriez.RustDesk");
}

TEST_F(RemoteToolsTest, strangeUserNamesReachNoTool) {
    for (const char* name : {"../Groups/admin", "-n", ".", "..", "a\nb", "a/b"}) {
        probe(name);
    }
    EXPECT_THAT(calledTools(), Each("/bin/launchctl"));
    EXPECT_TRUE(isPlainUserName("jan kowalski-żak"));
    EXPECT_FALSE(isPlainUserName(""));
}

TEST_F(RemoteToolsTest, aUidThatIsNoNumberIsNotAskedFor) {
    tool("/usr/bin/id", {"-u", "anna"}, "id: anna: nie ma");
    probe();
    for (const FakeProcessRunner::Call& call : processes.calls) {
        if (call.arguments.size() < 2) continue;
        EXPECT_FALSE(call.arguments[1].starts_with("gui/")) << call.arguments[1];
    }
}

TEST_F(RemoteToolsTest, identifiersGoUnderBothFormsIntoTheInventory) {
    RemoteToolProbes probes;
    probes.anyDesk = {{"id", "1"}};
    probes.teamViewer = {{"id", "2"}};
    probes.rustDesk = {{"id", "3"}, {"status", "online"}};
    Json inventory;
    probes.addToInventory(inventory);
    EXPECT_EQ(inventory, parseJson(R"({
        "anydesk_id": "1", "anydeskId": "1", "teamviewer_id": "2", "teamviewerId": "2",
        "rustdesk_id": "3", "rustdeskId": "3", "rustdesk_status": "online",
        "rustdeskStatus": "online",
        "remote": {"anydesk": {"id": "1"}, "teamviewer": {"id": "2"},
                   "rustdesk": {"id": "3", "status": "online"}}})"));
}

TEST_F(RemoteToolsTest, theHeartbeatLeavesOutWhatIsUnknown) {
    RemoteToolProbes probes;
    probes.rustDesk = {{"status", "not_installed"}};
    Json heartbeat = Json::object();
    probes.addToHeartbeat(heartbeat);
    EXPECT_EQ(heartbeat, Json::object());

    probes.anyDesk = {{"id", "1"}};
    probes.teamViewer = {{"id", "2"}};
    probes.rustDesk = {{"id", "3"}, {"status", "installed"}};
    probes.addToHeartbeat(heartbeat);
    EXPECT_EQ(heartbeat, parseJson(R"({"anydesk_id": "1", "teamviewer_id": "2",
        "rustdesk_id": "3", "rustdesk_status": "installed"})"));
}

TEST(HomeDirectoryTest, isReadFromTheSameOrTheNextLine) {
    using Home = std::optional<std::string>;
    EXPECT_EQ(parseHomeDirectory("NFSHomeDirectory: /Users/anna"), Home("/Users/anna"));
    EXPECT_EQ(parseHomeDirectory("NFSHomeDirectory:\n /Users/Anna Nowak\n"),
              Home("/Users/Anna Nowak"));
    EXPECT_EQ(parseHomeDirectory("warn\nNFSHomeDirectory: /a"), Home("/a"));
    EXPECT_EQ(parseHomeDirectory("No such key: NFSHomeDirectory"), std::nullopt);
    EXPECT_EQ(parseHomeDirectory("NFSHomeDirectory: relative"), std::nullopt);
    EXPECT_EQ(parseHomeDirectory("NFSHomeDirectory:"), std::nullopt);
    EXPECT_EQ(parseHomeDirectory(""), std::nullopt);
}

TEST(ServiceStateTest, isTheServicesOwnLine) {
    EXPECT_TRUE(isServiceRunning("x = {\n\tstate = running\n}"));
    EXPECT_FALSE(isServiceRunning("x = {\n\tstate = not running\n\tjob state = running\n}"));
    EXPECT_FALSE(isServiceRunning("x = {\n\tstate = spawn scheduled\n}"));
    EXPECT_FALSE(isServiceRunning(""));
}

}  // namespace
}  // namespace orv
