#include <csignal>
#include <stdexcept>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/ProcessRunnerFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Ge;
using testing::Lt;

using CancelledProcessTest = ProcessRunnerFixture;

TEST_F(CancelledProcessTest, cancellingEndsTheProgramAndLeavesNoZombie) {
    BackgroundTask task(loop, runToNowhere(script("echo $$; exec sleep 100")));
    waitForOutput();
    const pid_t process = std::stoi(output);
    ASSERT_TRUE(exists(process));
    task.cancel();
    waitFor(task);
    EXPECT_TRUE(task.wasCancelled());
    EXPECT_FALSE(exists(process));
}

TEST_F(CancelledProcessTest, cancellingAProgramThatHasJustEndedIsNoWait) {
    BackgroundTask other(loop, runToNowhere(program("/bin/sleep", {"100"})));
    loop.context.poll_one();
    BackgroundTask task(loop, runToNowhere(program("/bin/true", {})));
    loop.context.poll_one();
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT), 0);
    task.cancel();
    const auto begin = std::chrono::steady_clock::now();
    while (!task.isDone && std::chrono::steady_clock::now() - begin < 3s)
        loop.context.run_one_for(20ms);
    EXPECT_TRUE(task.wasCancelled());
    EXPECT_FALSE(exists(ended.si_pid));
    other.cancel();
    waitFor(other);
}

TEST_F(CancelledProcessTest, cancellingKillsAProgramThatIgnoresTheRequestToEnd) {
    BackgroundTask task(loop, runToNowhere(script("trap '' TERM; echo $$; exec sleep 100")));
    waitForOutput();
    const auto begin = std::chrono::steady_clock::now();
    task.cancel();
    waitFor(task);
    EXPECT_TRUE(task.wasCancelled());
    EXPECT_FALSE(exists(std::stoi(output)));
    EXPECT_THAT(std::chrono::steady_clock::now() - begin, AllOf(Ge(grace), Lt(5s)));
}

TEST_F(CancelledProcessTest, cancellingDoesNotWaitForBackgroundChildren) {
    BackgroundTask task(loop, runToNowhere(script("sleep 100 & echo $$ $!")));
    waitForOutput();
    const pid_t process = std::stoi(output);
    const pid_t background = std::stoi(output.substr(output.find(' ')));
    while (exists(process))
        loop.context.run_one_for(20ms);
    ASSERT_FALSE(task.isDone);
    task.cancel();
    waitFor(task);
    EXPECT_TRUE(task.wasCancelled());
    EXPECT_TRUE(exists(background));
    ::kill(background, SIGKILL);
}

TEST_F(CancelledProcessTest, aCancelledProgramsBackgroundChildrenHoldNobody) {
    BackgroundTask task(loop, runToNowhere(script("sleep 100 & echo $!; exec sleep 100")));
    waitForOutput();
    const pid_t background = std::stoi(output);
    task.cancel();
    waitFor(task);
    EXPECT_TRUE(task.wasCancelled());
    ::kill(background, SIGKILL);
}

TEST_F(CancelledProcessTest, whatASinkThrowsEndsTheProgramAndTheCall) {
    ProcessRequest request = script("echo $$; exec sleep 100");
    request.onStandardOutput = [this](std::string_view bytes) {
        output += bytes;
        throw std::length_error("no more room");
    };
    EXPECT_THROW(run(request), std::length_error);
    EXPECT_FALSE(exists(std::stoi(output)));
}

TEST_F(CancelledProcessTest, aLoopThatGoesAwayTakesItsProgramsAlong) {
    pid_t process = 0;
    {
        TestLoop other;
        SystemProcessRunner shortLived(other.executor());
        ProcessRequest request = script("echo $$; exec sleep 100");
        auto discard = [](Task<ProcessResult> task) -> Task<void> { co_await std::move(task); };
        BackgroundTask task(other, discard(shortLived.run(request)));
        while (output.empty())
            other.context.run_one_for(20ms);
        process = std::stoi(output);
        ASSERT_TRUE(exists(process));
    }
    EXPECT_FALSE(exists(process));
}

}  // namespace
}  // namespace orv
