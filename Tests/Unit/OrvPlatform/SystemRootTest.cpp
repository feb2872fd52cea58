#include <gtest/gtest.h>

#include "OrvPlatform/SystemRoot.h"

namespace orv {
namespace {

TEST(SystemRootTest, theRealSystemLeavesPathsAlone) {
    const SystemRoot root;
    EXPECT_EQ(root.locate("/usr/bin/true"), "/usr/bin/true");
    EXPECT_EQ(root.shown("/usr/bin/true"), "/usr/bin/true");
    EXPECT_FALSE(root.isRelocated());
}

TEST(SystemRootTest, aRelocatedRootPrefixesAndHidesThePrefix) {
    const SystemRoot root("/srv/mac/");
    EXPECT_EQ(root.locate("/Library"), "/srv/mac/Library");
    EXPECT_EQ(root.shown("/srv/mac/Library"), "/Library");
    EXPECT_EQ(root.shown("/srv/mac"), "/");
    EXPECT_EQ(root.shown("/srv/macintosh/x"), "/srv/macintosh/x");
    EXPECT_EQ(root.locate("relative"), "relative");
}

TEST(SystemRootTest, aSlashIsTheRealSystem) {
    EXPECT_FALSE(SystemRoot("/").isRelocated());
}

}  // namespace
}  // namespace orv
