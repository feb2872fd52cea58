#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/ConcurrencyLimit.h"
#include "OrvPlatform/TaskGroup.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

class ConcurrencyLimitTest : public testing::Test {
protected:
    Task<void> work(std::string name, std::chrono::seconds duration) {
        const ConcurrencyLimit::Slot slot = co_await limit.acquire();
        order += name;
        co_await clock.sleepFor(duration);
    }

    FakeClock clock;
    TestLoop loop{clock};
    ConcurrencyLimit limit{2};
    std::string order;
    TaskGroup group{loop.executor(), [](const std::string&, const std::exception&) {
                        ADD_FAILURE() << "nothing fails here";
                    }};
};

TEST_F(ConcurrencyLimitTest, letsSoManyWorkAtOnceFirstComeFirstServed) {
    for (const char* name : {"a", "b", "c", "d"})
        group.spawn(name, work(name, 10s));
    loop.runReady();
    EXPECT_EQ(order, "ab");
    loop.runFor(10s);
    EXPECT_EQ(order, "abcd");
    loop.run(group.join());
}

TEST_F(ConcurrencyLimitTest, aPlaceIsFreeAgainAfterwards) {
    loop.run(work("a", 1s));
    loop.run(work("b", 1s));
    group.spawn("c", work("c", 1s));
    group.spawn("d", work("d", 1s));
    loop.runReady();
    EXPECT_EQ(order, "abcd");
    loop.run(group.join());
}

TEST_F(ConcurrencyLimitTest, whoeverGivesUpWaitingLeavesTheQueue) {
    TaskGroup impatient(loop.executor(), [](const std::string&, const std::exception&) {});
    group.spawn("a", work("a", 10s));
    group.spawn("b", work("b", 20s));
    impatient.spawn("c", work("c", 1s));
    group.spawn("d", work("d", 1s));
    loop.runReady();
    impatient.cancel();
    loop.runFor(10s);
    EXPECT_EQ(order, "abd");
    loop.run(group.join());
}

TEST_F(ConcurrencyLimitTest, waitersMayBeDestroyedWithTheLoop) {
    for (const char* name : {"a", "b", "c", "d"})
        group.spawn(name, work(name, 10s));
    loop.runReady();
    EXPECT_EQ(order, "ab");
}

}  // namespace
}  // namespace orv
