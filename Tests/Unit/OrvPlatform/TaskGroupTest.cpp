#include <memory>
#include <stdexcept>
#include <vector>

#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/TaskGroup.h"
#include "Support/FakeClock.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TaskGroupTest : public ::testing::Test {
public:
    FakeClock clock;
    TestLoop loop{clock};
    std::vector<std::string> failures;
    std::vector<std::string> notes;
    TaskGroup::FailureHandler report = [this](const std::string& name,
                                              const std::exception& error) {
        failures.push_back(name + ": " + error.what());
    };

    Task<void> sleepThenNote(std::chrono::seconds duration, std::string note) {
        co_await clock.sleepFor(duration);
        notes.push_back(note);
    }

    Task<void> fail(std::string text) {
        co_await clock.sleepFor(1s);
        throw std::runtime_error(text);
    }

    /// Ends only one second after it was told to.
    Task<void> endSlowly(std::string note) {
        try {
            co_await clock.sleepFor(1h);
        } catch (const std::exception& error) {
            if (!isCancellation(error)) throw;
        }
        co_await asio::this_coro::reset_cancellation_state(asio::disable_cancellation());
        co_await clock.sleepFor(1s);
        notes.push_back(note);
    }

    Task<void> joinThenNote(TaskGroup& group, std::string note) {
        co_await group.join();
        notes.push_back(note);
    }
};

TEST_F(TaskGroupTest, runsTasksSideBySide) {
    TaskGroup group(loop.executor(), report);
    group.spawn("slow", sleepThenNote(2s, "slow"));
    group.spawn("quick", sleepThenNote(1s, "quick"));
    EXPECT_EQ(group.running(), 2U);
    EXPECT_THAT(clock.sleeps, IsEmpty()) << "nothing may start before its turn";
    loop.run(group.join());
    EXPECT_THAT(notes, ElementsAre("quick", "slow"));
    EXPECT_EQ(group.running(), 0U);
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(TaskGroupTest, joiningNothingReturnsAtOnce) {
    TaskGroup group(loop.executor(), report);
    loop.run(group.join());
    group.spawn("one", sleepThenNote(1s, "one"));
    loop.run(group.join());
    loop.run(group.join());
    EXPECT_THAT(notes, ElementsAre("one"));
}

TEST_F(TaskGroupTest, aFailureIsReportedAndTheOthersGoOn) {
    TaskGroup group(loop.executor(), report);
    group.spawn("first", fail("no luck"));
    group.spawn("second", sleepThenNote(2s, "second"));
    loop.run(group.join());
    EXPECT_THAT(failures, ElementsAre("first: no luck"));
    EXPECT_THAT(notes, ElementsAre("second"));
}

TEST_F(TaskGroupTest, cancellingEndsTasksQuietly) {
    TaskGroup group(loop.executor(), report);
    group.spawn("asleep", sleepThenNote(1h, "asleep"));
    loop.runReady();
    group.spawn("not yet begun", sleepThenNote(1h, "not yet begun"));
    group.cancel();
    loop.run(group.join());
    EXPECT_THAT(notes, IsEmpty());
    EXPECT_THAT(failures, IsEmpty());
    EXPECT_EQ(clock.monotonicNow().time_since_epoch(), 0s);
}

TEST_F(TaskGroupTest, whatATaskThrowsWhileItIsCancelledIsReported) {
    TaskGroup group(loop.executor(), report);
    auto clumsy = [](FakeClock& sleepsOn) -> Task<void> {
        try {
            co_await sleepsOn.sleepFor(1h);
        } catch (const std::exception&) {
            throw std::runtime_error("stumbled");
        }
    };
    group.spawn("clumsy", clumsy(clock));
    loop.runReady();
    group.cancel();
    loop.run(group.join());
    EXPECT_THAT(failures, ElementsAre("clumsy: stumbled"));
}

TEST_F(TaskGroupTest, aTaskThatHasEndedButIsNotYetGoneBearsACancellation) {
    TaskGroup group(loop.executor(), report);
    for (int i = 0; i < 3; ++i)
        group.spawn("woken", sleepThenNote(1s, "woken"));
    loop.runReady();
    clock.wakeNext();
    group.cancel();
    group.cancel();
    loop.run(group.join());
    EXPECT_EQ(group.running(), 0U);
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(TaskGroupTest, aTaskMayCancelItsOwnGroup) {
    TaskGroup group(loop.executor(), report);
    auto cancelAll = [](FakeClock& sleepsOn, TaskGroup& all) -> Task<void> {
        co_await sleepsOn.sleepFor(1s);
        all.cancel();
    };
    group.spawn("other", sleepThenNote(1h, "other"));
    group.spawn("canceller", cancelAll(clock, group));
    group.spawn("third", sleepThenNote(1h, "third"));
    loop.run(group.join());
    EXPECT_THAT(notes, IsEmpty());
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(TaskGroupTest, aTaskMaySpawnAnother) {
    TaskGroup group(loop.executor(), report);
    auto spawner = [](TaskGroupTest& test, TaskGroup& all) -> Task<void> {
        co_await test.clock.sleepFor(1s);
        all.spawn("child", test.sleepThenNote(1s, "child"));
    };
    group.spawn("parent", spawner(*this, group));
    loop.run(group.join());
    EXPECT_THAT(notes, ElementsAre("child"));
}

TEST_F(TaskGroupTest, aTaskBeginsAtTheNextTurnUnlessItIsCancelledBefore) {
    TaskGroup group(loop.executor(), report);
    auto noteNow = [](TaskGroupTest& test) -> Task<void> {
        test.notes.push_back("task");
        co_return;
    };
    asio::post(loop.context, [&] {
        group.spawn("noting", noteNow(*this));
        notes.push_back("spawned");
    });
    loop.runReady();
    EXPECT_THAT(notes, ElementsAre("spawned", "task"));
    asio::post(loop.context, [&] {
        group.spawn("never", noteNow(*this));
        group.cancel();
    });
    loop.runReady();
    EXPECT_THAT(notes, ElementsAre("spawned", "task"));
    EXPECT_EQ(group.running(), 0U);
}

TEST_F(TaskGroupTest, everyJoinerIsWoken) {
    TaskGroup group(loop.executor(), report);
    group.spawn("task", sleepThenNote(1s, "task"));
    BackgroundTask first(loop, joinThenNote(group, "first"));
    BackgroundTask second(loop, joinThenNote(group, "second"));
    for (int i = 0; i < 100; ++i)
        loop.context.poll_one();
    EXPECT_EQ(loop.context.poll_one(), 0U) << "joiners must not keep waking one another";
    loop.runFor(1s);
    EXPECT_THAT(notes, ElementsAre("task", "first", "second"));
}

TEST_F(TaskGroupTest, cancellingTheJoinerCancelsTheTasksAndStillWaitsForThem) {
    TaskGroup group(loop.executor(), report);
    group.spawn("slow", endSlowly("slow ended"));
    group.spawn("quick", sleepThenNote(1h, "never"));
    BackgroundTask joiner(loop, joinThenNote(group, "never"));
    loop.runReady();
    joiner.cancel();
    loop.runReady();
    EXPECT_FALSE(joiner.isDone);
    EXPECT_EQ(group.running(), 1U);
    joiner.cancel();
    loop.runReady();
    EXPECT_FALSE(joiner.isDone) << "a second cancellation must not cut the wait short";
    loop.runFor(1s);
    EXPECT_TRUE(joiner.isDone);
    EXPECT_TRUE(joiner.wasCancelled()) << "whoever was cancelled must learn of it";
    EXPECT_THAT(notes, ElementsAre("slow ended"));
    EXPECT_EQ(group.running(), 0U);
}

TEST_F(TaskGroupTest, afterJoiningTheTaskCanStillBeCancelled) {
    TaskGroup group(loop.executor(), report);
    auto joinThenSleep = [](FakeClock& sleepsOn, TaskGroup& all) -> Task<void> {
        co_await all.join();
        co_await sleepsOn.sleepFor(1h);
    };
    BackgroundTask joiner(loop, joinThenSleep(clock, group));
    loop.runReady();
    EXPECT_EQ(clock.sleepers(), 1U);
    joiner.cancel();
    loop.runReady();
    EXPECT_TRUE(joiner.wasCancelled());
}

TEST_F(TaskGroupTest, destroyingTheGroupCancelsWithoutWaiting) {
    auto group = std::make_unique<TaskGroup>(loop.executor(), report);
    group->spawn("slow", endSlowly("slow ended"));
    group->spawn("failing", fail("too late"));
    loop.runReady();
    group.reset();
    EXPECT_THAT(notes, IsEmpty());
    loop.runFor(2s);
    EXPECT_THAT(notes, ElementsAre("slow ended"));
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(TaskGroupTest, theHandlerOfADestroyedGroupIsNotCalledAnyMore) {
    auto group = std::make_unique<TaskGroup>(loop.executor(), report);
    auto failSlowly = [](TaskGroupTest& test) -> Task<void> {
        co_await test.endSlowly("told");
        throw std::runtime_error("nobody listens");
    };
    group->spawn("failing", failSlowly(*this));
    loop.runReady();
    group.reset();
    loop.runFor(2s);
    EXPECT_THAT(notes, ElementsAre("told"));
    EXPECT_THAT(failures, IsEmpty());
}

TEST_F(TaskGroupTest, aHandlerMayDestroyTheGroup) {
    std::unique_ptr<TaskGroup> group;
    group = std::make_unique<TaskGroup>(loop.executor(),
                                        [&](const std::string& name, const std::exception& error) {
                                            report(name, error);
                                            group.reset();
                                            notes.push_back("handled " + name);
                                        });
    group->spawn("failing", fail("over"));
    group->spawn("other", sleepThenNote(1h, "never"));
    loop.runFor(2h);
    EXPECT_THAT(failures, ElementsAre("failing: over"));
    EXPECT_THAT(notes, ElementsAre("handled failing"));
}

TEST_F(TaskGroupTest, theLoopMayEndWithTasksAndJoinersInside) {
    TestLoop shortLived(clock);
    {
        TaskGroup group(shortLived.executor(), report);
        group.spawn("stubborn", endSlowly("never"));
        BackgroundTask joiner(shortLived, group.join());
        shortLived.runReady();
    }
    EXPECT_THAT(notes, IsEmpty());
}

}  // namespace
}  // namespace orv
