#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/Deadline.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

Task<std::string> answerAfter(Clock& clock, std::chrono::nanoseconds time) {
    co_await clock.sleepFor(time);
    co_return "answer";
}

Task<std::string> failAfter(Clock& clock, std::chrono::nanoseconds time) {
    co_await clock.sleepFor(time);
    throw std::runtime_error("broken");
}

Task<void> waitFor(Task<std::optional<std::string>> task) {
    co_await std::move(task);
}

class DeadlineTest : public testing::Test {
protected:
    FakeClock clock;
    TestLoop loop{clock};
};

TEST_F(DeadlineTest, returnsTheValueOfATaskThatEndsInTime) {
    EXPECT_EQ(loop.run(finishedWithin(clock, 10s, answerAfter(clock, 9s))), "answer");
    EXPECT_EQ(clock.monotonicNow(), MonotonicTime(9s));
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_TRUE(loop.run(finishedWithin(clock, 10s, clock.sleepFor(9s))));
}

TEST_F(DeadlineTest, cancelsATaskThatTakesLonger) {
    EXPECT_EQ(loop.run(finishedWithin(clock, 10s, answerAfter(clock, 11s))), std::nullopt);
    EXPECT_EQ(clock.monotonicNow(), MonotonicTime(10s));
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_FALSE(loop.run(finishedWithin(clock, 10s, clock.sleepFor(11s))));
}

TEST_F(DeadlineTest, throwsWhatTheTaskThrowsAtOnce) {
    EXPECT_THROW(loop.run(finishedWithin(clock, 10s, failAfter(clock, 1s))), std::runtime_error);
    EXPECT_EQ(clock.monotonicNow(), MonotonicTime(1s));
    EXPECT_EQ(clock.sleepers(), 0u);
}

TEST_F(DeadlineTest, isCancelledWithItsTask) {
    BackgroundTask waiting(loop, waitFor(finishedWithin(clock, 10s, answerAfter(clock, 9s))));
    loop.runReady();
    waiting.cancel();
    loop.runReady();
    ASSERT_TRUE(waiting.isDone);
    EXPECT_EQ(clock.sleepers(), 0u);
    EXPECT_TRUE(waiting.wasCancelled());
}

}  // namespace
}  // namespace orv
