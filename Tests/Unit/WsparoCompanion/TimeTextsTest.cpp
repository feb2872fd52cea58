#include <chrono>

#include <gtest/gtest.h>

#include "Support/ScopedEnvironment.h"
#include "WsparoCompanion/TimeTexts.h"

namespace orv::companion {
namespace {

using namespace std::chrono_literals;

const WallTime now{std::chrono::seconds(1772356502)};  // 2026-03-01T09:15:02Z

std::string ago(std::chrono::seconds age, Language language = Language::polish) {
    return timeAgo(now - age, now, language);
}

TEST(TimeTextsTest, tellsAgesInTheLargestUnitThatFits) {
    EXPECT_EQ(ago(0s), "przed chwilą");
    EXPECT_EQ(ago(59s), "przed chwilą");
    EXPECT_EQ(ago(60s), "1 min temu");
    EXPECT_EQ(ago(3min + 59s), "3 min temu");
    EXPECT_EQ(ago(1h), "1 godzinę temu");
    EXPECT_EQ(ago(3h), "3 godziny temu");
    EXPECT_EQ(ago(12h), "12 godzin temu");
    EXPECT_EQ(ago(24h), "1 dzień temu");
    EXPECT_EQ(ago(5 * 24h), "5 dni temu");
    EXPECT_EQ(ago(62 * 24h), "2 miesiące temu");
    EXPECT_EQ(ago(200 * 24h), "6 miesięcy temu");
    EXPECT_EQ(ago(366 * 24h), "1 rok temu");
    EXPECT_EQ(ago(22 * 366 * 24h), "22 lata temu");
}

TEST(TimeTextsTest, speaksEnglishToo) {
    EXPECT_EQ(ago(10s, Language::english), "just now");
    EXPECT_EQ(ago(3min, Language::english), "3 min ago");
    EXPECT_EQ(ago(1h, Language::english), "1 hour ago");
    EXPECT_EQ(ago(2h, Language::english), "2 hours ago");
}

TEST(TimeTextsTest, doesNotPretendThatTheFutureIsPast) {
    const test::ScopedEnvironment zone("TZ", "UTC");
    EXPECT_EQ(ago(-59s), "przed chwilą");
    EXPECT_EQ(ago(-1h), "2026-03-01 10:15 (data w przyszłości)");
}

TEST(TimeTextsTest, showsTimesInTheTimeZoneOfThePerson) {
    const test::ScopedEnvironment zone("TZ", "CET-1");
    EXPECT_EQ(localTime(now), "2026-03-01 10:15");
}

}  // namespace
}  // namespace orv::companion
