#include <chrono>
#include <optional>

#include <gtest/gtest.h>

#include "WsparoCompanion/UpdateFollower.h"

namespace orv::companion {
namespace {

using namespace std::chrono_literals;
using Follower = UpdateFollower;

const MonotonicTime start{1000s};
const WallTime written{std::chrono::seconds(1772356502)};

ViewerUpdateStatus status(const char* phase, std::chrono::seconds later = 0s) {
    return {phase, "x", "0.2.55", std::nullopt, written + later, std::nullopt};
}

template <typename Step>
bool is(const Follower::Step& step) {
    return std::holds_alternative<Step>(step);
}

TEST(UpdateFollowerTest, followsARequestToItsEnd) {
    Follower follower(std::nullopt, start, 30s);
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({std::nullopt, true}, start + 2s)));
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({std::nullopt, false}, start + 3s)));
    EXPECT_TRUE(is<Follower::Progress>(follower.look({status("checking"), false}, start + 3s)));
    EXPECT_TRUE(is<Follower::Progress>(follower.look({status("downloading"), false}, start + 4s)));
    EXPECT_TRUE(is<Follower::Ended>(follower.look({status("installed"), false}, start + 5s)));
}

TEST(UpdateFollowerTest, doesNotTakeAnOldEndForTheNewOne) {
    const auto old = status("no_update");
    Follower follower(old, start, 30s);
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({old, true}, start)));
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({old, false}, start + 1s)));
    EXPECT_TRUE(is<Follower::Ended>(follower.look({status("no_update", 2s), false}, start + 2s)));
}

TEST(UpdateFollowerTest, doesNotTakeAnEndForOursWhileTheRequestWaits) {
    Follower follower(std::nullopt, start, 30s);
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({status("failed"), true}, start + 1s)));
}

TEST(UpdateFollowerTest, givesUpWhenNobodyTakesTheRequest) {
    Follower follower(std::nullopt, start, 30s);
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({std::nullopt, true}, start + 30s)));
    EXPECT_TRUE(is<Follower::NotTaken>(follower.look({std::nullopt, true}, start + 31s)));
}

TEST(UpdateFollowerTest, givesUpWhenNothingIsHeardAfterwards) {
    const auto old = status("installed");
    Follower follower(old, start, 30s);
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({old, false}, start + 20s)));
    EXPECT_TRUE(is<Follower::Waiting>(follower.look({old, false}, start + 110s)));
    EXPECT_TRUE(is<Follower::NoNews>(follower.look({old, false}, start + 111s)));
}

TEST(UpdateFollowerTest, showsAnUpdateThatWasUnderWayAlready) {
    const auto underWay = status("downloading");
    Follower follower(underWay, start, 30s);
    EXPECT_TRUE(is<Follower::Progress>(follower.look({underWay, false}, start + 500s)));
    EXPECT_TRUE(is<Follower::Ended>(follower.look({status("failed", 9s), false}, start + 501s)));
}

}  // namespace
}  // namespace orv::companion
