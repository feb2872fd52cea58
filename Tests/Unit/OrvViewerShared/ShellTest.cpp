#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/SystemProcessRunner.h"
#include "OrvViewerShared/Shell.h"
#include "Support/FakeClock.h"
#include "Support/FakeProcessRunner.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Answer = std::optional<std::string>;

class ShellTest : public testing::Test {
protected:
    Answer answerOf(ScriptedProcess process) {
        runner.answerAlways("/mac/usr/sbin/tool", std::move(process));
        return loop.run(shell.run("/usr/sbin/tool", {"-a", "b c"}));
    }

    Answer processOutputOf(ScriptedProcess process) {
        runner.answerAlways("/mac/usr/sbin/tool", std::move(process));
        return loop.run(shell.processOutput("/usr/sbin/tool", {}));
    }

    FakeClock clock;
    TestLoop loop{clock};
    FakeProcessRunner runner{clock};
    Shell shell{runner, SystemRoot("/mac"), {.timeout = 120s, .outputBytes = 1000}};
};

TEST_F(ShellTest, givesTheTrimmedOutputOfTheToolBelowTheRoot) {
    EXPECT_EQ(answerOf({.standardOutput = "\n  two\nlines \n", .standardError = "noise"}),
              "two\nlines");
    ASSERT_EQ(runner.calls.size(), 1U);
    EXPECT_EQ(runner.calls[0].executable, "/mac/usr/sbin/tool");
    EXPECT_THAT(runner.calls[0].arguments, ElementsAre("-a", "b c"));
    EXPECT_EQ(runner.calls[0].timeout, 120s);
}

TEST_F(ShellTest, toolsSpeakNoLanguageInParticular) {
    answerOf({});
    processOutputOf({});
    ASSERT_EQ(runner.calls.size(), 2U);
    for (const FakeProcessRunner::Call& call : runner.calls)
        EXPECT_THAT(call.environmentChanges, ElementsAre("LC_ALL=C"));
}

TEST_F(ShellTest, aToolHasTwoMinutesUnlessToldOtherwise) {
    Shell usual(runner, SystemRoot("/mac"));
    runner.answerAlways("/mac/usr/sbin/tool", {});
    loop.run(usual.run("/usr/sbin/tool", {}));
    EXPECT_EQ(runner.calls.at(0).timeout, 120s);
}

TEST_F(ShellTest, noOutputIsAnEmptyAnswer) {
    EXPECT_EQ(answerOf({}), "");
}

TEST_F(ShellTest, aToolThatFailsHasNoAnswer) {
    EXPECT_EQ(answerOf({.standardOutput = "text", .end = Exited{1}}), std::nullopt);
    EXPECT_EQ(answerOf({.standardOutput = "text", .end = Signalled{SIGSEGV}}), std::nullopt);
}

TEST_F(ShellTest, aToolThatIsMissingHasNoAnswer) {
    EXPECT_EQ(loop.run(shell.run("/usr/sbin/other", {})), std::nullopt);
    EXPECT_EQ(loop.run(shell.processOutput("/usr/sbin/other", {})), std::nullopt);
}

TEST_F(ShellTest, aToolThatHangsHasNoAnswer) {
    const MonotonicTime begin = clock.monotonicNow();
    EXPECT_EQ(answerOf({.standardOutput = "text", .delay = 3600s}), std::nullopt);
    EXPECT_EQ(clock.monotonicNow() - begin, 120s);
    EXPECT_EQ(processOutputOf({.standardOutput = "text", .delay = 3600s}), std::nullopt);
}

TEST_F(ShellTest, outputThatIsNoTextIsNoAnswer) {
    EXPECT_EQ(answerOf({.standardOutput = "bad \xFF byte"}), std::nullopt);
    EXPECT_EQ(processOutputOf({.standardOutput = "fine", .standardError = "\xC3"}), std::nullopt);
    EXPECT_EQ(processOutputOf({.standardOutput = "\xC3", .standardError = "fine"}), std::nullopt);
}

TEST_F(ShellTest, outputUpToTheLimitIsAnAnswerAndMoreIsNone) {
    EXPECT_EQ(answerOf({.standardOutput = std::string(1000, 'x')}), std::string(1000, 'x'));
    EXPECT_EQ(answerOf({.standardOutput = std::string(1001, 'x')}), std::nullopt);
    EXPECT_EQ(processOutputOf({.standardError = std::string(1001, 'x')}), std::nullopt);
}

TEST_F(ShellTest, processOutputHasBothOutputsWhateverTheStatus) {
    EXPECT_EQ(
        processOutputOf({.standardOutput = "out", .standardError = "err\n", .end = Exited{1}}),
        "out\nerr");
    EXPECT_EQ(processOutputOf({.standardError = "Authority=X\n"}), "Authority=X");
    EXPECT_EQ(processOutputOf({.standardOutput = "out\n"}), "out");
    EXPECT_EQ(processOutputOf({.standardError = "err", .end = Signalled{SIGKILL}}), std::nullopt);
}

TEST(ShellWithRealToolsTest, readsMoreThanAPipeHolds) {
    TestLoop loop;
    SystemProcessRunner runner(loop.executor());
    Shell shell(runner, SystemRoot());
    const Answer answer = loop.run(shell.run("/bin/sh", {"-c",
                                                         "head -c 300000 /dev/zero | tr '\\0' x; "
                                                         "head -c 300000 /dev/zero >&2"}));
    EXPECT_EQ(answer, std::string(300000, 'x'));
}

TEST(ShellWithRealToolsTest, aToolThatPrintsTooMuchRunsToItsEndWithoutFillingMemory) {
    TestLoop loop;
    SystemProcessRunner runner(loop.executor());
    Shell shell(runner, SystemRoot(), {.timeout = 10s, .outputBytes = 1 << 20});
    EXPECT_EQ(loop.run(shell.run("/usr/bin/head", {"-c", "100000000", "/dev/zero"})), std::nullopt);
}

TEST(ShellWithRealToolsTest, aToolThatHangsIsEnded) {
    TestLoop loop;
    SystemProcessRunner runner(loop.executor());
    Shell shell(runner, SystemRoot(), {.timeout = 30ms});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(loop.run(shell.run("/bin/sleep", {"100"})), std::nullopt);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
}

}  // namespace
}  // namespace orv
