#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/SystemWake.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::Eq;
using testing::Optional;

class SystemWakeTest : public testing::Test {
protected:
    std::chrono::nanoseconds asleep = 7h;
    SystemWake wake{[this] { return asleep; }};
};

TEST_F(SystemWakeTest, doesNotReportWhatWasSleptBeforeTheStart) {
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
}

TEST_F(SystemWakeTest, reportsASleepOnce) {
    asleep += 90min;
    EXPECT_THAT(wake.sleptSinceLastLook(), Optional(Eq(90min)));
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
}

TEST_F(SystemWakeTest, reportsEverySleep) {
    asleep += 5s;
    EXPECT_THAT(wake.sleptSinceLastLook(), Optional(Eq(5s)));
    asleep += 3s;
    EXPECT_THAT(wake.sleptSinceLastLook(), Optional(Eq(3s)));
}

TEST_F(SystemWakeTest, passesOverNapsUntilTheyAddUp) {
    asleep += 1s;
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
    asleep += 999ms;
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
    asleep += 1ms;
    EXPECT_THAT(wake.sleptSinceLastLook(), Optional(Eq(2s)));
}

TEST_F(SystemWakeTest, isNotConfusedByAThreadThatLostTheProcessor) {
    asleep -= 4s;
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
    asleep += 4s;
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
}

TEST(TimeAsleepTest, standsStillWhileTheMachineIsAwake) {
    SystemWake wake;
    EXPECT_GE(timeAsleep(), -SystemWake::shortestSleep);
    EXPECT_EQ(wake.sleptSinceLastLook(), std::nullopt);
}

}  // namespace
}  // namespace orv
