#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/MainBundle.h"

namespace orv {
namespace {

TEST(MainBundleTest, isTheFolderOfTheProgram) {
    EXPECT_TRUE(fileExists(mainBundlePath() + "/UnitTests"));
}

}  // namespace
}  // namespace orv
