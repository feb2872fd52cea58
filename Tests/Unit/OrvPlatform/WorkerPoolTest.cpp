#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/TaskGroup.h"
#include "OrvPlatform/WorkerPool.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

/// Work that stays in a worker until the test lets it go.
class Gate {
public:
    /// For the worker.
    void pass() {
        entered.set_value();
        opened.get_future().wait();
    }

    void waitUntilEntered() { entered.get_future().wait(); }
    void open() { opened.set_value(); }

private:
    std::promise<void> entered;
    std::promise<void> opened;
};

Task<void> runTo(WorkerPool& pool, std::function<int()> work, std::optional<int>& result) {
    result = co_await pool.run(std::move(work));
}

TEST(WorkerPoolTest, runsWorkOnAnotherThreadAndComesBack) {
    TestLoop loop;
    WorkerPool pool;
    auto both = [](WorkerPool& workers) -> Task<bool> {
        const auto caller = std::this_thread::get_id();
        const auto worker = co_await workers.run([] { return std::this_thread::get_id(); });
        co_return worker != caller&& std::this_thread::get_id() == caller;
    };
    EXPECT_TRUE(loop.run(both(pool)));
}

TEST(WorkerPoolTest, takesAndReturnsValuesThatCannotBeCopied) {
    TestLoop loop;
    WorkerPool pool;
    auto input = std::make_unique<int>(21);
    auto doubled = [owned = std::move(input)] { return std::make_unique<int>(*owned * 2); };
    EXPECT_EQ(*loop.run(pool.run(std::move(doubled))), 42);
    auto nothing = [owned = std::make_unique<int>(1)] { ASSERT_EQ(*owned, 1); };
    loop.run(pool.run(std::move(nothing)));
}

TEST(WorkerPoolTest, returnsWhatHasNoDefault) {
    struct Measured {
        explicit Measured(int givenValue) : value(givenValue) {}
        int value;
    };
    TestLoop loop;
    WorkerPool pool;
    EXPECT_EQ(loop.run(pool.run([] { return std::optional(Measured(3)); }))->value, 3);
}

TEST(WorkerPoolTest, whatTheWorkThrowsReachesTheCaller) {
    TestLoop loop;
    WorkerPool pool;
    auto failing = []() -> int { throw std::invalid_argument("bad input"); };
    auto failingWithoutValue = [] { throw std::invalid_argument("bad input"); };
    EXPECT_THROW(loop.run(pool.run(failing)), std::invalid_argument);
    EXPECT_THROW(loop.run(pool.run(failingWithoutValue)), std::invalid_argument);
    EXPECT_EQ(loop.run(pool.run([] { return 1; })), 1) << "the worker must survive";
}

TEST(WorkerPoolTest, theLoopStaysAliveWhileOnlyAWorkerIsBusy) {
    TestLoop loop;
    WorkerPool pool;
    Gate gate;
    std::optional<int> result;
    BackgroundTask task(loop, runTo(pool, [&] { return gate.pass(), 5; }, result));
    std::thread opener([&] {
        gate.waitUntilEntered();
        gate.open();
    });
    loop.context.run();  // would return at once if nothing kept it
    opener.join();
    EXPECT_EQ(result, 5);
}

TEST(WorkerPoolTest, asManyThreadsAsAskedForWorkAtOnce) {
    TestLoop loop;
    WorkerPool pool(2);
    Gate first;
    Gate second;
    std::optional<int> results[3];
    BackgroundTask one(loop, runTo(pool, [&] { return first.pass(), 1; }, results[0]));
    BackgroundTask two(loop, runTo(pool, [&] { return second.pass(), 2; }, results[1]));
    std::atomic<bool> thirdBegan = false;
    BackgroundTask three(loop, runTo(pool, [&] { return thirdBegan = true, 3; }, results[2]));
    loop.runReady();
    first.waitUntilEntered();
    second.waitUntilEntered();
    EXPECT_FALSE(thirdBegan);
    first.open();
    second.open();
    loop.context.restart();
    loop.context.run();
    EXPECT_EQ(results[0], 1);
    EXPECT_EQ(results[1], 2);
    EXPECT_EQ(results[2], 3);
}

TEST(WorkerPoolTest, cancellationWaitsForWorkThatHasBegun) {
    TestLoop loop;
    WorkerPool pool;
    Gate gate;
    std::optional<int> result;
    bool workEnded = false;
    BackgroundTask task(loop, runTo(
                                  pool,
                                  [&] {
                                      gate.pass();
                                      workEnded = true;
                                      return 1;
                                  },
                                  result));
    loop.runReady();
    gate.waitUntilEntered();
    task.cancel();
    loop.runReady();
    EXPECT_FALSE(task.isDone);
    gate.open();
    loop.context.restart();
    loop.context.run();
    ASSERT_TRUE(task.isDone);
    EXPECT_TRUE(workEnded);
    EXPECT_EQ(result, std::nullopt);
    EXPECT_TRUE(task.wasCancelled());
}

TEST(WorkerPoolTest, aTaskThatIsCancelledBeforeItBeganGivesNoWork) {
    TestLoop loop;
    WorkerPool pool;
    std::atomic<bool> began = false;
    std::optional<int> result;
    TaskGroup group(loop.executor(), [](const std::string&, const std::exception&) {});
    group.spawn("work", runTo(pool, [&] { return began = true, 1; }, result));
    group.cancel();
    loop.run(group.join());
    EXPECT_FALSE(began);
}

TEST(WorkerPoolTest, inputsAreReleasedOnTheCallersThread) {
    TestLoop loop;
    WorkerPool pool;
    std::thread::id releasedOn;
    std::shared_ptr<int> input(new int(4), [&](int* value) {
        releasedOn = std::this_thread::get_id();
        delete value;
    });
    for (int i = 0; i < 50; ++i) {
        auto work = [input] { return *input; };
        EXPECT_EQ(loop.run(pool.run(std::move(work))), 4);
        EXPECT_EQ(input.use_count(), 1);
    }
    auto work = [owned = std::move(input)] { return *owned; };
    loop.run(pool.run(std::move(work)));
    EXPECT_EQ(releasedOn, std::this_thread::get_id());
}

TEST(WorkerPoolTest, destructionWaitsForBegunWorkAndDropsTheRest) {
    TestLoop loop;
    Gate gate;
    std::atomic<bool> firstEnded = false;
    std::atomic<bool> secondBegan = false;
    std::optional<int> results[2];
    auto pool = std::make_unique<WorkerPool>(1);
    BackgroundTask first(
        loop, runTo(*pool, [&] { return gate.pass(), firstEnded = true, 1; }, results[0]));
    BackgroundTask second(loop, runTo(*pool, [&] { return secondBegan = true, 2; }, results[1]));
    loop.runReady();
    gate.waitUntilEntered();
    std::thread opener([&] {
        std::this_thread::sleep_for(5ms);  // while the destructor waits
        gate.open();
    });
    pool.reset();
    EXPECT_TRUE(firstEnded);
    opener.join();
    loop.context.restart();
    loop.context.run();
    EXPECT_EQ(results[0], 1);
    EXPECT_TRUE(first.isDone);
    EXPECT_FALSE(secondBegan);
    EXPECT_FALSE(second.isDone);
}

TEST(WorkerPoolTest, anUnusedPoolHasNoThreads) {
    // More threads than any system grants, so starting them would fail.
    EXPECT_NO_THROW(WorkerPool(4'000'000'000U));
}

}  // namespace
}  // namespace orv
