#include <algorithm>
#include <cstdlib>
#include <sys/resource.h>

#include <gtest/gtest.h>

#include "OrvPlatform/ProcessLimits.h"

namespace orv {
namespace {

/// In a process of its own, because a hard limit that was lowered stays so. Ends with 0 when the
/// limit became the expected one.
[[noreturn]] void raiseFrom(rlim_t soft, rlim_t hard, rlim_t expected) {
    rlimit limit{soft, hard};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) std::_Exit(2);
    raiseDescriptorLimit();
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) std::_Exit(3);
    std::_Exit(limit.rlim_cur == expected && limit.rlim_max == hard ? 0 : 1);
}

rlim_t hardLimit() {
    rlimit limit{};
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    return limit.rlim_max;
}

TEST(ProcessLimitsDeathTest, aScansWorthOfDescriptorsMayBeOpen) {
    const rlim_t hard = hardLimit();
    EXPECT_EXIT(raiseFrom(256, hard, std::min<rlim_t>(hard, 4096)), testing::ExitedWithCode(0), "");
}

TEST(ProcessLimitsDeathTest, theHardLimitIsTheEnd) {
    EXPECT_EXIT(raiseFrom(256, 512, 512), testing::ExitedWithCode(0), "");
}

TEST(ProcessLimitsDeathTest, aHigherLimitStays) {
    const rlim_t hard = hardLimit();
    if (hard < 5000) GTEST_SKIP() << "not that much is allowed here";
    EXPECT_EXIT(raiseFrom(5000, hard, 5000), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace orv
