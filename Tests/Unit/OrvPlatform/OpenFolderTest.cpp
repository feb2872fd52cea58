#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/OpenFolder.h"
#include "Support/ErrorText.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OpenFolderTest : public testing::Test {
protected:
    OpenFolder base() const { return OpenFolder::open(folder.path(), "/Mac"); }

    std::set<std::string> names(const OpenFolder& of) const {
        std::set<std::string> found;
        of.forEachName([&](std::string_view name) { return found.emplace(name).second; });
        return found;
    }

    TemporaryDirectory folder;
};

TEST_F(OpenFolderTest, writesReadsListsAndRemoves) {
    const OpenFolder made = base().madeSubfolder("a", 0755).madeSubfolder("b", 0777);
    made.writeFileAtomically("x", "text", {});
    EXPECT_EQ(made.readFile("x", 4), "text");
    EXPECT_THAT(names(made), ElementsAre("x"));
    EXPECT_THAT(names(made), ElementsAre("x"));  // reading begins anew each time
    EXPECT_EQ(std::filesystem::file_size(folder.path("a/b/x")), 4U);
    made.removeFile("x");
    EXPECT_THAT(names(made), IsEmpty());
}

TEST_F(OpenFolderTest, staysInTheFolderThatIsMovedAway) {
    const OpenFolder made = base().madeSubfolder("a", 0755);
    std::filesystem::rename(folder.path("a"), folder.path("moved"));
    std::filesystem::create_directory(folder.path("a"));
    made.writeFileAtomically("x", "text", {});
    EXPECT_TRUE(std::filesystem::exists(folder.path("moved/x")));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("a")));
}

TEST_F(OpenFolderTest, aNewFolderGetsItsModeWhateverTheUmask) {
    const mode_t before = umask(077);
    base().madeSubfolder("a", 0777);
    umask(before);
    EXPECT_EQ(modeOf(folder.path("a")), 0777U);
}

TEST_F(OpenFolderTest, anOwnFolderGetsItsModeLater) {
    std::filesystem::create_directory(folder.path("a"));
    std::filesystem::permissions(folder.path("a"), std::filesystem::perms(0700));
    base().madeSubfolder("a", 0777);
    EXPECT_EQ(modeOf(folder.path("a")), 0777U);
}

TEST_F(OpenFolderTest, somebodyElsesFolderKeepsItsMode) {
    if (geteuid() != 0) GTEST_SKIP() << "Only root can give a folder away.";
    std::filesystem::create_directory(folder.path("a"));
    std::filesystem::permissions(folder.path("a"), std::filesystem::perms(0700));
    ASSERT_EQ(chown(folder.path("a").c_str(), 501, 20), 0);
    base().madeSubfolder("a", 0777);
    EXPECT_EQ(modeOf(folder.path("a")), 0700U);
}

TEST_F(OpenFolderTest, aLinkIsNoFolder) {
    const TemporaryDirectory elsewhere;
    std::filesystem::create_directory_symlink(elsewhere.path(), folder.path("link"));
    EXPECT_EQ(errorOf<FileError>([&] { base().subfolder("link"); }), "Not a directory: /Mac/link");
    EXPECT_EQ(errorOf<FileError>([&] { base().madeSubfolder("link", 0777); }),
              "Not a directory: /Mac/link");
    EXPECT_EQ(errorOf<FileError>([&] { base().subfolder("none"); }),
              "No such file or directory: /Mac/none");
}

TEST_F(OpenFolderTest, aLinkIsNoFile) {
    const TemporaryDirectory elsewhere;
    std::ofstream(elsewhere.path("secret")) << "secret";
    std::filesystem::create_symlink(elsewhere.path("secret"), folder.path("link"));
    EXPECT_NE(errorOf<FileError>([&] { base().readFile("link", 100); }), "no error");

    base().writeFileAtomically("link", "mine", {});  // takes the link's place
    EXPECT_FALSE(std::filesystem::is_symlink(folder.path("link")));
    EXPECT_EQ(readFile(elsewhere.path("secret"), 100), "secret");
}

TEST_F(OpenFolderTest, aNameIsOneComponent) {
    for (const std::string name : {"", ".", "..", "a/b", "/etc/passwd", "../x"}) {
        const std::string expected = "Invalid argument: /Mac/" + name;
        EXPECT_EQ(errorOf<FileError>([&] { base().readFile(name, 100); }), expected);
        EXPECT_EQ(errorOf<FileError>([&] { base().writeFileAtomically(name, "x", {}); }), expected);
        EXPECT_EQ(errorOf<FileError>([&] { base().removeFile(name); }), expected);
        EXPECT_EQ(errorOf<FileError>([&] { base().subfolder(name); }), expected);
    }
    EXPECT_NE(errorOf<FileError>([&] { base().readFile(std::string("a\0b", 3), 100); }),
              "no error");
}

TEST_F(OpenFolderTest, aFailedWriteLeavesNothingBehind) {
    std::filesystem::create_directory(folder.path("taken"));
    EXPECT_EQ(errorOf<FileError>([&] { base().writeFileAtomically("taken", "x", {}); }),
              "Is a directory: /Mac/taken");
    EXPECT_THAT(names(base()), ElementsAre("taken"));
    EXPECT_EQ(errorOf<FileError>([&] { base().removeFile("none"); }),
              "No such file or directory: /Mac/none");
}

}  // namespace
}  // namespace orv
