#include <chrono>
#include <cstdlib>
#include <exception>
#include <signal.h>
#include <stdexcept>

#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Clock.h"
#include "OrvPlatform/CoreThread.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

Task<void> sleepLong() {
    SystemClock clock;
    co_await clock.sleepFor(1h);
}

Task<void> interruptItself(bool& wasCancelled) {
    ::raise(SIGINT);
    try {
        co_await sleepLong();
    } catch (const std::exception& error) {
        wasCancelled = isCancellation(error);
    }
}

Task<void> doNothing() {
    co_return;
}

Task<void> fail() {
    throw std::runtime_error("failed");
    co_return;
}

TEST(CoreThreadTest, endsWithItsTask) {
    CoreThread core(1s, EXIT_FAILURE);
    EXPECT_FALSE(core.run(doNothing()));
    EXPECT_FALSE(core.wasInterrupted());
}

TEST(CoreThreadTest, handsOnWhatTheTaskFailedWith) {
    CoreThread core(1s, EXIT_FAILURE);
    const std::exception_ptr error = core.run(fail());
    EXPECT_THROW(std::rethrow_exception(error), std::runtime_error);
}

TEST(CoreThreadTest, aSignalCancelsTheTask) {
    CoreThread core(1s, EXIT_FAILURE);
    bool wasCancelled = false;
    EXPECT_FALSE(core.run(interruptItself(wasCancelled)));
    EXPECT_TRUE(wasCancelled);
    EXPECT_TRUE(core.wasInterrupted());
}

}  // namespace
}  // namespace orv
