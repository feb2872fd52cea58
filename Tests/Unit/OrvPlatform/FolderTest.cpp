#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Folder.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

namespace fs = std::filesystem;

class FolderTest : public testing::Test {
protected:
    TemporaryDirectory folder;
};

TEST_F(FolderTest, makesWhatIsMissingWithTheModeWhateverTheUmask) {
    const mode_t umaskBefore = ::umask(0077);
    ensureFolder(folder.path("a/b"), 01777);
    ::umask(umaskBefore);
    EXPECT_EQ(modeOf(folder.path("a/b")), 01777U);
}

TEST_F(FolderTest, correctsTheModeOfAFolderThatIsThere) {
    fs::create_directory(folder.path("a"));
    fs::permissions(folder.path("a"), fs::perms(0700));
    ensureFolder(folder.path("a"), 0755);
    EXPECT_EQ(modeOf(folder.path("a")), 0755U);
}

TEST_F(FolderTest, refusesALinkInItsPlace) {
    fs::create_directory(folder.path("target"));
    fs::permissions(folder.path("target"), fs::perms(0700));
    fs::create_symlink("target", folder.path("a"));
    EXPECT_THROW(ensureFolder(folder.path("a"), 01777), FileError);
    EXPECT_EQ(modeOf(folder.path("target")), 0700U);
}

TEST_F(FolderTest, refusesAFileInItsPlace) {
    std::ofstream(folder.path("a")) << "x";
    EXPECT_THROW(ensureFolder(folder.path("a"), 0755), FileError);
}

TEST_F(FolderTest, removesAFolderWithItsContentButNotWhatALinkLeadsTo) {
    fs::create_directories(folder.path("keep/inner"));
    fs::create_directories(folder.path("a/b"));
    fs::create_directory_symlink(folder.path("keep"), folder.path("a/b/link"));
    fs::create_directory_symlink(folder.path("keep"), folder.path("link"));
    EXPECT_TRUE(removeEntry(folder.path("a")));
    EXPECT_TRUE(removeEntry(folder.path("link")));
    EXPECT_TRUE(removeEntry(folder.path("missing")));
    EXPECT_FALSE(fs::exists(folder.path("a")));
    EXPECT_FALSE(fs::exists(fs::symlink_status(folder.path("link"))));
    EXPECT_TRUE(fs::exists(folder.path("keep/inner")));
}

}  // namespace
}  // namespace orv
