#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Uuid.h"

namespace orv {
namespace {

TEST(UuidTest, isARandomOneInUpperCase) {
    for (int i = 0; i < 50; ++i) {
        EXPECT_THAT(randomUuid(),
                    testing::MatchesRegex(
                        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
    }
}

TEST(UuidTest, neverComesTwice) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i)
        seen.insert(randomUuid());
    EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace orv
