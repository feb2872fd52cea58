#include <chrono>
#include <ratio>

#include <gtest/gtest.h>

#include "OrvPlatform/Iso8601.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

WallTime sinceEpoch(std::chrono::seconds seconds) {
    return WallTime(seconds);
}

TEST(Iso8601Test, writesUtcInWholeSeconds) {
    EXPECT_EQ(iso8601(sinceEpoch(1772356502s)), "2026-03-01T09:15:02Z");
    EXPECT_EQ(iso8601(sinceEpoch(0s)), "1970-01-01T00:00:00Z");
    EXPECT_EQ(iso8601(sinceEpoch(1709251199s)), "2024-02-29T23:59:59Z");
}

TEST(Iso8601Test, truncatesTowardsThePast) {
    EXPECT_EQ(iso8601(sinceEpoch(1s) + 999ms), "1970-01-01T00:00:01Z");
    EXPECT_EQ(iso8601(sinceEpoch(0s) - 1ms), "1969-12-31T23:59:59Z");
    EXPECT_EQ(iso8601(sinceEpoch(-86400s) - 1ms), "1969-12-30T23:59:59Z");
}

TEST(Iso8601Test, readsWhatItWrites) {
    for (const auto time : {0s, 1s, -1s, 1772356502s, -2208988800s, 4102444799s, 9214646399s}) {
        EXPECT_EQ(parseIso8601(iso8601(sinceEpoch(time))), sinceEpoch(time));
    }
}

TEST(Iso8601Test, readsOffsets) {
    const WallTime time = sinceEpoch(1772356502s);
    EXPECT_EQ(parseIso8601("2026-03-01T11:15:02+02:00"), time);
    EXPECT_EQ(parseIso8601("2026-03-01T11:15:02+0200"), time);
    EXPECT_EQ(parseIso8601("2026-03-01T03:45:02-0530"), time);
    EXPECT_EQ(parseIso8601("2026-02-28T23:15:02-10:00"), time);
    EXPECT_EQ(parseIso8601("2026-03-01T09:15:02-00:00"), time);
}

TEST(Iso8601Test, knowsLeapYears) {
    EXPECT_TRUE(parseIso8601("2024-02-29T00:00:00Z"));
    EXPECT_TRUE(parseIso8601("2000-02-29T00:00:00Z"));
    EXPECT_FALSE(parseIso8601("2023-02-29T00:00:00Z"));
    EXPECT_FALSE(parseIso8601("1900-02-29T00:00:00Z"));
}

TEST(Iso8601Test, refusesImpossibleDatesAndTimes) {
    for (const char* bad : {"2026-00-01T00:00:00Z", "2026-13-01T00:00:00Z", "2026-04-31T00:00:00Z",
                            "2026-01-00T00:00:00Z", "2026-01-32T00:00:00Z", "0000-01-01T00:00:00Z",
                            "2026-01-01T24:00:00Z", "2026-01-01T00:60:00Z", "2026-01-01T00:00:60Z",
                            "2026-01-01T00:00:00+24:00", "2026-01-01T00:00:00+01:60"}) {
        EXPECT_FALSE(parseIso8601(bad)) << bad;
    }
}

TEST(Iso8601Test, refusesEveryOtherForm) {
    for (const char* bad : {"",
                            "2026-03-01",
                            "2026-03-01T09:15:02",
                            "2026-03-01T09:15Z",
                            "2026-03-01 09:15:02Z",
                            "2026-03-01t09:15:02Z",
                            "2026-03-01T09:15:02z",
                            "2026-03-01T09:15:02.5Z",
                            "2026-03-01T09:15:02,5Z",
                            " 2026-03-01T09:15:02Z",
                            "2026-03-01T09:15:02Z ",
                            "2026-3-1T9:15:02Z",
                            "20260301T091502Z",
                            "2026-03-01T0915:02Z",
                            "-026-03-01T09:15:02Z",
                            "+2026-03-01T09:15:02Z",
                            "12026-03-01T09:15:02Z",
                            "2026-03-01T09:15:02+2:00",
                            "2026-03-01T09:15:02+02",
                            "2026-03-01T09:15:02+02:00:00",
                            "2026-03-01T09:15:02 +0200",
                            "2026-03-01T09:15:02ZZ",
                            "2026-03-01T09:15:0\xC2\xB2Z"}) {
        EXPECT_FALSE(parseIso8601(bad)) << bad;
    }
    EXPECT_FALSE(parseIso8601(std::string_view("2026-03-01T09:15:02Z\0", 21)));
}

TEST(Iso8601Test, refusesWhatWallTimeCannotHoldInsteadOfWrappingAround) {
    // In nanoseconds a 64-bit time ends in 1677 and 2262.
    const bool isCoarse = std::ratio_greater_v<WallTime::period, std::nano>;
    for (const char* extreme : {"0001-01-01T00:00:00Z", "1677-09-21T00:12:43Z",
                                "2262-04-11T23:47:17Z", "9999-12-31T23:59:59Z"}) {
        const auto time = parseIso8601(extreme);
        EXPECT_EQ(time.has_value(), isCoarse) << extreme;
        EXPECT_EQ(time ? iso8601(*time) : extreme, extreme);
    }
    EXPECT_TRUE(parseIso8601("1677-09-21T00:12:44Z"));
    EXPECT_TRUE(parseIso8601("2262-04-11T23:47:16Z"));
}

}  // namespace
}  // namespace orv
