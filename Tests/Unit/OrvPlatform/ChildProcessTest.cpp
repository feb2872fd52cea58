#include <cerrno>
#include <csignal>
#include <memory>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "OrvPlatform/ChildProcess.h"
#include "Support/ShellRequest.h"

namespace orv {
namespace {

/// The tests below wait for nothing but a program that is about to end.
ProcessEnd endOf(ChildProcess& child) {
    for (;;) {
        if (const std::optional<ProcessEnd> end = child.end()) return *end;
        ::usleep(200);
    }
}

TEST(ChildProcessTest, hasNoEndWhileItRunsAndTheSameOneEverAfter) {
    ChildProcess child(shellRequest("exec sleep 100"));
    EXPECT_EQ(child.end(), std::nullopt);
    child.signal(SIGTERM);
    EXPECT_EQ(endOf(child), ProcessEnd(Signalled{SIGTERM}));
    child.signal(SIGKILL);  // reaches nobody who has the number now
    EXPECT_EQ(child.end(), ProcessEnd(Signalled{SIGTERM}));
    EXPECT_EQ(::kill(child.id(), 0), -1);
}

TEST(ChildProcessTest, isGoneWhenItsOwnerIs) {
    auto child = std::make_unique<ChildProcess>(shellRequest("trap '' TERM; exec sleep 100"));
    const pid_t process = child->id();
    EXPECT_EQ(::kill(process, 0), 0);
    child.reset();
    EXPECT_EQ(::kill(process, 0), -1);  // not even a zombie
}

TEST(ChildProcessTest, handsOutNonBlockingPipesForTheOutputsThatAreWanted) {
    ProcessRequest request = shellRequest("exec sleep 100");
    request.onStandardError = [](std::string_view) {};
    ChildProcess child(request);
    EXPECT_FALSE(child.takeStandardOutput().isOpen());
    const FileDescriptor errors = child.takeStandardError();
    ASSERT_TRUE(errors.isOpen());
    char byte = 0;
    EXPECT_EQ(::read(errors.get(), &byte, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(ChildProcessTest, aPipeEndsWithItsProgram) {
    ProcessRequest request = shellRequest("printf x");
    request.onStandardOutput = [](std::string_view) {};
    ChildProcess child(request);
    EXPECT_EQ(endOf(child), ProcessEnd(Exited{0}));
    const FileDescriptor output = child.takeStandardOutput();
    char bytes[2] = {};
    EXPECT_EQ(::read(output.get(), bytes, sizeof bytes), 1);
    EXPECT_EQ(bytes[0], 'x');
    EXPECT_EQ(::read(output.get(), bytes, sizeof bytes), 0);  // we kept no write end
}

}  // namespace
}  // namespace orv
