#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Commands/CommandTable.h"
#include "OrvViewerShared/Update/UpdateCheck.h"
#include "OrvViewerShared/Update/UpdaterJob.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "Support/AgentFixture.h"
#include "Support/FakeProcessRunner.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

class CommandTableTest : public AgentFixture {
protected:
    CommandTableTest() {
        ViewerState state;
        state.deviceUid = "u";
        stateFile.save(state);
    }

    std::vector<CommandRoute> table() {
        return commandTable({registration(), scanner, *notify, shell, update, files, uninstall});
    }

    /// Hands the pipeline one command of this type; the bodies of its reports.
    std::vector<Json> process(const std::string& type, const Json& payload) {
        notify.emplace(NotifyCommand::Parts{store, registration(), workers, clock, logger});
        CommandPipeline pipeline(
            {table(), registration(), api(), logger, [](std::string) { return nothing(); }});
        const Json command{{"id", 1}, {"command_type", type}, {"payload", payload}};
        http.thenAnswer(200, compactJson(Json::array({command})));
        loop.run(pipeline.processPendingCommands(std::nullopt, "timer"));
        std::vector<Json> reports;
        for (std::size_t i = 1; i < http.requests.size(); ++i)
            reports.push_back(Json::parse(http.body(i)));
        return reports;
    }

    static Task<void> nothing() { co_return; }

    FakeProcessRunner processes{clock};
    WorkerPool workers;
    RemoteChatStore store{root, clock, logger};
    IpScanner scanner{{loop.executor(), processes, clock, root}};
    ShellCommand shell{{processes, clock, root}};
    FileCommands files{{workers, clock, root}};
    ViewerUpdateCoordinator coordinator{{root, clock, logger}};
    UpdaterJob job{{root, processes, clock, logger, coordinator, "https://desk.example"}};
    UpdateCheck check{{coordinator, api(), job, clock}};
    UpdateCommand update{check};
    UninstallCommand uninstall{{processes, root, clock, logger}};
    std::optional<NotifyCommand> notify;
};

TEST_F(CommandTableTest, knowsTheTypesInTheirOrder) {
    notify.emplace(NotifyCommand::Parts{store, registration(), workers, clock, logger});
    std::vector<std::string> types;
    for (const CommandRoute& route : table())
        types.push_back(route.type);
    EXPECT_THAT(types,
                ElementsAre("force_audit", "ip_scan", "user_notify", "shell", "client_update",
                            "file_list", "file_download", "file_upload", "client_uninstall"));
}

TEST_F(CommandTableTest, aNotificationReachesTheChatFolder) {
    const std::vector<Json> reports = process("user_notify", {{"message", "x"}});
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].at("status"), "completed");
    EXPECT_EQ(reports[0].at("result").at("public_id"), "device-u");
    EXPECT_THAT(store.incomingMessageFiles(), SizeIs(1));
}

TEST_F(CommandTableTest, anUninstallIsPickedUpFirstAndEndsAsStarted) {
    processes.answerAlways(root.locate("/bin/bash"), {});
    const std::vector<Json> reports = process("client_uninstall", Json::object());
    ASSERT_THAT(reports, SizeIs(2));
    EXPECT_EQ(reports[0], Json::parse(R"({"status":"picked_up",
                              "result":{"platform":"macos","uninstall_started":false}})"));
    EXPECT_EQ(reports[1].at("status"), "uninstall_started");
    EXPECT_EQ(reports[1].at("result").at("uninstall_started"), true);
    EXPECT_THAT(processes.calls, SizeIs(1));
}

TEST_F(CommandTableTest, anUninstallThatDoesNotStartFails) {
    const std::vector<Json> reports = process("client_uninstall", Json::object());
    ASSERT_THAT(reports, SizeIs(2));
    EXPECT_EQ(reports[1].at("status"), "failed");
}

TEST_F(CommandTableTest, aTypeInAnotherCaseIsUnknown) {
    const std::vector<Json> reports = process("User_Notify", {{"message", "x"}});
    ASSERT_THAT(reports, SizeIs(1));
    EXPECT_EQ(reports[0].at("status"), "failed");
}

}  // namespace
}  // namespace orv
