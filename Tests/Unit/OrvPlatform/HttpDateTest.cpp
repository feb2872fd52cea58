#include <gtest/gtest.h>

#include "OrvPlatform/HttpDate.h"
#include "OrvPlatform/Iso8601.h"

namespace orv {
namespace {

TEST(HttpDateTest, readsTheDatesOfServers) {
    const auto date = parseHttpDate("Sun, 01 Mar 2026 09:15:02 GMT");
    ASSERT_TRUE(date);
    EXPECT_EQ(iso8601(*date), "2026-03-01T09:15:02Z");
}

TEST(HttpDateTest, takesNothingElseForADate) {
    EXPECT_EQ(parseHttpDate(""), std::nullopt);
    EXPECT_EQ(parseHttpDate("soon"), std::nullopt);
}

}  // namespace
}  // namespace orv
