#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/Commands/UninstallCommand.h"
#include "Support/FakeClock.h"
#include "Support/FakeProcessRunner.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestDirectory.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;

class UninstallCommandTest : public testing::Test {
protected:
    Json uninstall() {
        UninstallCommand command({processes, root, clock, logger});
        return loop.run(command.startSelfUninstall());
    }
    std::string log() const {
        return fileExists(logger.logFile()) ? readFile(logger.logFile(), 10'000) : "";
    }

    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    FakeClock clock;
    TestLoop loop{clock};
    ViewerLogger logger{root, clock};
    FakeProcessRunner processes{clock};
};

TEST_F(UninstallCommandTest, theJobIsTheGoldenOne) {
    EXPECT_EQ(uninstallJob(SystemRoot()), readFile(testFile("Golden/uninstall-job.sh"), 100'000));
}

TEST_F(UninstallCommandTest, underAnotherRootTheJobStaysBelowIt) {
    const std::string job = uninstallJob(SystemRoot("/a b/it's"));
    EXPECT_THAT(job, StartsWith("#!/bin/bash\nmac='/a b/it'\\''s'\n"));
    const std::string product = uninstallJob(SystemRoot());
    EXPECT_EQ(job.substr(job.find("\nlog=")), product.substr(product.find("\nlog=")));
}

TEST_F(UninstallCommandTest, startsTheJobOutOfOurSessionAndSaysSo) {
    processes.answerAlways(root.locate("/bin/bash"), {});
    EXPECT_EQ(uninstall(),
              Json::parse(R"({"platform":"macos","uninstall_started":true,"remove_viewer":true,
                              "remove_rustdesk":false,"started_at":"2026-03-01T09:15:02Z"})"));
    ASSERT_THAT(processes.calls, SizeIs(1));
    EXPECT_THAT(processes.calls[0].arguments, ElementsAre("-c", uninstallJob(root)));
    EXPECT_TRUE(processes.calls[0].inOwnSession);
    EXPECT_EQ(log(),
              "2026-03-01T09:15:02Z [INFO] Wsparo Brenvox macOS self-uninstall was scheduled.\n");
}

TEST_F(UninstallCommandTest, aShellThatDoesNotStartFailsTheCommand) {
    processes.failToLaunch(root.locate("/bin/bash"), "Permission denied");
    EXPECT_THROW(uninstall(), LaunchError);
    EXPECT_EQ(log(), "");
}

}  // namespace
}  // namespace orv
