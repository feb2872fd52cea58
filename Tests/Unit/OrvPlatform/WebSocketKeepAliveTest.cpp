#include <gtest/gtest.h>

#include "OrvPlatform/WebSocketKeepAlive.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using Action = KeepAliveStep::Action;

constexpr KeepAliveTimes times{30s, 75s};

MonotonicTime at(std::chrono::nanoseconds time) {
    return MonotonicTime(time);
}

KeepAliveFacts openSince0() {
    return {at(0s), at(0s), std::nullopt, false};
}

void expectStep(const KeepAliveFacts& facts, std::chrono::nanoseconds now, Action action,
                std::chrono::nanoseconds wait) {
    const KeepAliveStep step = nextKeepAliveStep(facts, times, at(now));
    EXPECT_EQ(step.action, action);
    EXPECT_EQ(step.waitAfterwards, wait);
}

TEST(WebSocketKeepAliveTest, waitsForThirtySecondsOfSilence) {
    expectStep(openSince0(), 0s, Action::wait, 30s);
    expectStep(openSince0(), 26s, Action::wait, 4s);
    expectStep(openSince0(), 30s, Action::ping, 30s);
}

TEST(WebSocketKeepAliveTest, trafficPutsThePingOff) {
    KeepAliveFacts facts = openSince0();
    facts.lastArrival = at(20s);
    expectStep(facts, 30s, Action::wait, 20s);
}

TEST(WebSocketKeepAliveTest, anAnswerThatTookAMomentCostsNoWakeOfItsOwn) {
    KeepAliveFacts facts = openSince0();
    facts.lastPing = at(30s);
    facts.lastArrival = at(30s + 80ms);
    expectStep(facts, 60s, Action::ping, 30s);
}

TEST(WebSocketKeepAliveTest, pingsAgainAndGivesUpAfterSeventyFiveSecondsOfSilence) {
    KeepAliveFacts facts = openSince0();
    facts.lastPing = at(30s);
    expectStep(facts, 60s, Action::ping, 15s);
    facts.lastPing = at(60s);
    expectStep(facts, 75s - 1ns, Action::wait, 1ns);
    expectStep(facts, 75s, Action::giveUpSilence, 0s);
}

TEST(WebSocketKeepAliveTest, aWriteThatNobodyTakesEndsTheConnectionWhateverArrives) {
    KeepAliveFacts facts = openSince0();
    facts.lastPing = at(50s);
    facts.writingSince = at(10s);
    facts.lastArrival = at(84s);
    expectStep(facts, 84s, Action::wait, 1s);
    facts.lastArrival = at(85s);
    expectStep(facts, 85s, Action::giveUpWriting, 0s);
}

TEST(WebSocketKeepAliveTest, silenceMeansNothingWhileReadingPauses) {
    KeepAliveFacts facts = openSince0();
    facts.isReadingPaused = true;
    facts.lastPing = at(990s);
    expectStep(facts, 1000s, Action::wait, 20s);
    facts.writingSince = at(940s);
    expectStep(facts, 1015s, Action::giveUpWriting, 0s);
}

}  // namespace
}  // namespace orv
