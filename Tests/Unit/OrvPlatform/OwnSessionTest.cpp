#include <csignal>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "OrvPlatform/SystemProcessRunner.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

/// Starts a shell that leaves a process behind; its id.
pid_t processLeftBehind(bool inOwnSession) {
    TestLoop loop;
    SystemProcessRunner runner(loop.executor());
    std::string output;
    ProcessRequest request;
    request.executable = "/bin/sh";
    // The process left behind holds none of our pipes, or the run would wait for it.
    request.arguments = {"-c", "sleep 60 >/dev/null 2>&1 & echo $!"};
    request.onStandardOutput = [&output](std::string_view bytes) { output += bytes; };
    request.inOwnSession = inOwnSession;
    loop.run(runner.run(std::move(request)));
    return static_cast<pid_t>(std::stol(output));
}

TEST(OwnSessionTest, whatIsLeftBehindIsOutOfReachOfOurSessionAndGroup) {
    const pid_t process = processLeftBehind(true);
    EXPECT_NE(getsid(process), getsid(0));
    EXPECT_NE(getpgid(process), getpgid(0));
    EXPECT_EQ(kill(process, SIGKILL), 0);
}

TEST(OwnSessionTest, otherProgramsStayInOurs) {
    const pid_t process = processLeftBehind(false);
    EXPECT_EQ(getsid(process), getsid(0));
    EXPECT_EQ(kill(process, SIGKILL), 0);
}

}  // namespace
}  // namespace orv
