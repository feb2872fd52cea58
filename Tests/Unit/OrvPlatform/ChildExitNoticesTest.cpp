#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "OrvPlatform/ChildExitNotices.h"
#include "OrvPlatform/ChildProcess.h"
#include "Support/ShellRequest.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

/// Leaves it to be waited for.
void waitUntilEnded(const ChildProcess& child) {
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child.id()), &ended, WEXITED | WNOWAIT), 0);
}

class ChildExitNoticesTest : public testing::Test {
protected:
    /// Takes the child's notices until it has ended.
    void follow(ChildProcess& child, int& notices) {
        exits->add(child.id(), [this, &child, &notices] {
            ++notices;
            if (child.end()) exits->remove(child.id());
        });
    }

    void waitForNotices(const int& notices, int count) {
        const auto begin = std::chrono::steady_clock::now();
        while (notices < count && std::chrono::steady_clock::now() - begin < 3s)
            loop.context.run_one_for(20ms);
    }

    TestLoop loop;
    std::shared_ptr<ChildExitNotices> exits = std::make_shared<ChildExitNotices>(loop.executor());
};

// With hundreds of programs at a time, a look at all of them at every end is most of the work.
TEST_F(ChildExitNoticesTest, onlyTheOwnerOfAnEndedChildIsTold) {
    ChildProcess lasting(shellRequest("exec sleep 100"));
    ChildProcess brief(shellRequest("exit 0"));
    int noticesOfLasting = 0;
    int noticesOfBrief = 0;
    follow(lasting, noticesOfLasting);
    follow(brief, noticesOfBrief);
    waitForNotices(noticesOfBrief, 1);
    EXPECT_TRUE(brief.end());
    EXPECT_EQ(noticesOfBrief, 1);
    EXPECT_EQ(noticesOfLasting, 0);
    exits->remove(lasting.id());
}

TEST_F(ChildExitNoticesTest, oneSignalMayStandForSeveralEnds) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    ChildProcess first(shellRequest("exit 1"));
    ChildProcess second(shellRequest("exit 2"));
    waitUntilEnded(first);
    waitUntilEnded(second);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);

    int notices = 0;
    follow(first, notices);
    follow(second, notices);
    waitForNotices(notices, 2);
    EXPECT_EQ(notices, 2);
    EXPECT_EQ(first.end(), ProcessEnd(Exited{1}));
    EXPECT_EQ(second.end(), ProcessEnd(Exited{2}));
}

}  // namespace
}  // namespace orv
