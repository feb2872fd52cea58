#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "Support/ErrorText.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t amplyBytes = 1 << 20;

void plant(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : before(::umask(mask)) {}
    ~ScopedUmask() { ::umask(before); }

private:
    mode_t before;
};

TEST(FileTest, readsAWholeFile) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("file");
    for (const std::string& content :
         {std::string(), std::string("a\0b\r\n", 5), std::string(300'000, 'x')}) {
        plant(path, content);
        EXPECT_EQ(readFile(path, amplyBytes), content);
        EXPECT_EQ(readFile(path, content.size()), content);
    }
}

TEST(FileTest, refusesAFileBeyondTheLimit) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("file");
    plant(path, "12345");
    EXPECT_EQ(errorOf<FileError>([&] { readFile(path, 4); }), "Larger than the limit: " + path);
    EXPECT_EQ(errorOf<FileError>([&] { readFile(path, 0); }), "Larger than the limit: " + path);
}

TEST(FileTest, readsFilesThatSayTheyAreEmptyAndKeepsTheirLimitToo) {
    if (!fileExists("/proc/cpuinfo")) GTEST_SKIP() << "no /proc here";
    const std::string content = readFile("/proc/cpuinfo", amplyBytes);
    EXPECT_GT(content.size(), 100U);
    // The size that stat gives is 0, so only reading can find out: as with a file that grows.
    EXPECT_EQ(errorOf<FileError>([] { readFile("/proc/cpuinfo", 100); }),
              "Larger than the limit: /proc/cpuinfo");
}

TEST(FileTest, namesWhyAFileCannotBeRead) {
    const TemporaryDirectory folder;
    const std::string missing = folder.path("missing");
    EXPECT_EQ(errorOf<FileError>([&] { readFile(missing, amplyBytes); }),
              "No such file or directory: " + missing);
    try {
        readFile(missing, amplyBytes);
    } catch (const FileError& error) {
        EXPECT_EQ(error.systemError(), ENOENT);
    }
}

TEST(FileTest, whatIsNoRegularFileIsAnErrorAtOnce) {
    const TemporaryDirectory folder;
    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0666), 0);
    const std::string socketPath = folder.path("socket");
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    EXPECT_EQ(errorOf<FileError>([&] { readFile(fifo, amplyBytes); }),
              "Not a regular file: " + fifo);
    EXPECT_EQ(errorOf<FileError>([&] { readFile(folder.path(), amplyBytes); }),
              "Not a regular file: " + folder.path());
    EXPECT_EQ(errorOf<FileError>([&] { readFile("/dev/zero", amplyBytes); }),
              "Not a regular file: /dev/zero");
    EXPECT_NE(errorOf<FileError>([&] { readFile(socketPath, amplyBytes); }), "no error");
    ::close(listener);
}

TEST(FileTest, followsLinksOnlyWhenAllowed) {
    const TemporaryDirectory folder;
    plant(folder.path("file"), "content");
    const std::string link = folder.path("link");
    std::filesystem::create_symlink("file", link);
    EXPECT_EQ(readFile(link, amplyBytes), "content");
    EXPECT_EQ(errorOf<FileError>([&] { readFile(link, amplyBytes, Links::refuse); }),
              "Too many levels of symbolic links: " + link);
    EXPECT_EQ(readFile(folder.path("file"), amplyBytes, Links::refuse), "content");
}

TEST(FileTest, aPathWithANulIsNoPath) {
    const TemporaryDirectory folder;
    plant(folder.path("file"), "content");
    const std::string path = folder.path(std::string("file\0.txt", 9));
    const std::string refusal = "Invalid argument: " + folder.path("file");
    EXPECT_FALSE(fileExists(path));
    EXPECT_EQ(errorOf<FileError>([&] { readFile(path, amplyBytes); }), refusal);
    EXPECT_EQ(errorOf<FileError>([&] { writeFileAtomically(path, "x"); }), refusal);
    EXPECT_EQ(errorOf<FileError>([&] { createDirectories(path); }), refusal);
}

TEST(FileTest, existsMeansLinksFollowed) {
    const TemporaryDirectory folder;
    plant(folder.path("file"), "");
    std::filesystem::create_symlink("file", folder.path("good"));
    std::filesystem::create_symlink("nowhere", folder.path("dangling"));
    EXPECT_TRUE(fileExists(folder.path("file")));
    EXPECT_TRUE(fileExists(folder.path()));
    EXPECT_TRUE(fileExists(folder.path("good")));
    EXPECT_FALSE(fileExists(folder.path("dangling")));
    EXPECT_FALSE(fileExists(folder.path("nowhere")));
    EXPECT_FALSE(fileExists(""));
}

TEST(FileTest, writesAndReplaces) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("file");
    for (const std::string& content :
         {std::string("first"), std::string(), std::string("a\0b", 3), std::string(300'000, 'x')}) {
        writeFileAtomically(path, content);
        EXPECT_EQ(readFile(path, amplyBytes), content);
    }
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("file"));
}

TEST(FileTest, aReaderOfTheOldFileKeepsIt) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("file");
    plant(path, "old");
    std::ifstream reader(path);
    writeFileAtomically(path, "new");
    std::string word;
    reader >> word;
    EXPECT_EQ(word, "old");
}

TEST(FileTest, theUmaskDecidesTheModeUnlessOneIsGiven) {
    const TemporaryDirectory folder;
    const ScopedUmask mask(027);
    writeFileAtomically(folder.path("plain"), "x");
    EXPECT_EQ(modeOf(folder.path("plain")), 0640U);
    writeFileAtomically(folder.path("shared"), "x", {.mode = 0666});
    EXPECT_EQ(modeOf(folder.path("shared")), 0666U);
    writeFileAtomically(folder.path("shared"), "x", {.mode = 0600});
    EXPECT_EQ(modeOf(folder.path("shared")), 0600U);
}

TEST(FileTest, aReplacedFileHandsItsAttributesOnWhenAsked) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("tool");
    plant(path, "old");
    const bool isRoot = ::geteuid() == 0;
    if (isRoot) {
        ASSERT_EQ(::chown(path.c_str(), 12345, 23456), 0);
    }
    ASSERT_EQ(::chmod(path.c_str(), 04755), 0);
    writeFileAtomically(path, "new", {.mode = 0600, .keepAttributesOfReplaced = true});
    EXPECT_EQ(modeOf(path), 0755U) << "the right to run as its owner must not be handed on";
    struct stat attributes{};
    ASSERT_EQ(::stat(path.c_str(), &attributes), 0);
    if (isRoot) {
        EXPECT_EQ(attributes.st_uid, 12345U);
        EXPECT_EQ(attributes.st_gid, 23456U);
    }
    EXPECT_EQ(readFile(path, amplyBytes), "new");
}

TEST(FileTest, withNothingToReplaceTheGivenModeCounts) {
    const TemporaryDirectory folder;
    writeFileAtomically(folder.path("new"), "x", {.mode = 0604, .keepAttributesOfReplaced = true});
    EXPECT_EQ(modeOf(folder.path("new")), 0604U);
    // A link has no attributes of its own to hand on, and its target's are none of ours.
    plant(folder.path("secret"), "s");
    ASSERT_EQ(::chmod(folder.path("secret").c_str(), 0777), 0);
    std::filesystem::create_symlink("secret", folder.path("link"));
    writeFileAtomically(folder.path("link"), "x", {.mode = 0600, .keepAttributesOfReplaced = true});
    EXPECT_EQ(modeOf(folder.path("link")), 0600U);
}

TEST(FileTest, aPlantedLinkIsReplacedAndItsTargetLeftAlone) {
    const TemporaryDirectory folder;
    plant(folder.path("victim"), "precious");
    std::filesystem::create_symlink("victim", folder.path("file"));
    std::filesystem::create_hard_link(folder.path("victim"), folder.path("twin"));
    writeFileAtomically(folder.path("file"), "new", {.mode = 0666});
    writeFileAtomically(folder.path("twin"), "new", {.mode = 0666});
    EXPECT_EQ(readFile(folder.path("victim"), amplyBytes), "precious");
    EXPECT_EQ(readFile(folder.path("file"), amplyBytes, Links::refuse), "new");
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("file", "twin", "victim"));
}

TEST(FileTest, aFolderIsNoTarget) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("sub");
    std::filesystem::create_directory(path);
    EXPECT_EQ(errorOf<FileError>([&] { writeFileAtomically(path, "x"); }),
              "Is a directory: " + path);
    EXPECT_THAT(namesIn(folder.path()), ElementsAre("sub"));
    EXPECT_THAT(namesIn(path), IsEmpty());
}

TEST(FileTest, aMissingFolderIsAnError) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("missing/file");
    EXPECT_EQ(errorOf<FileError>([&] { writeFileAtomically(path, "x"); }),
              "No such file or directory: " + path);
}

TEST(FileTest, aNameMayBeAsLongAsTheFileSystemAllows) {
    const TemporaryDirectory folder;
    const std::string path = folder.path(std::string(255, 'n'));
    writeFileAtomically(path, "x");
    EXPECT_EQ(readFile(path, amplyBytes), "x");
}

TEST(FileTest, createsAllMissingFolders) {
    const TemporaryDirectory folder;
    const std::string path = folder.path("a/b/c");
    createDirectories(path);
    createDirectories(path);
    EXPECT_TRUE(std::filesystem::is_directory(path));
    std::filesystem::create_directory_symlink("a", folder.path("link"));
    createDirectories(folder.path("link/d"));
    EXPECT_TRUE(std::filesystem::is_directory(folder.path("a/d")));
}

TEST(FileTest, aFileInTheWayOfAFolderIsAnError) {
    const TemporaryDirectory folder;
    plant(folder.path("file"), "");
    for (const std::string& path : {folder.path("file"), folder.path("file/sub")}) {
        EXPECT_EQ(errorOf<FileError>([&] { createDirectories(path); }), "Not a directory: " + path);
    }
}

TEST(FileTest, takesPathsApart) {
    EXPECT_EQ(parentPath("/a/b"), "/a");
    EXPECT_EQ(parentPath("/a/b/"), "/a");
    EXPECT_EQ(parentPath("/a//b"), "/a");
    EXPECT_EQ(parentPath("/a"), "/");
    EXPECT_EQ(parentPath("/"), "/");
    EXPECT_EQ(parentPath("a"), ".");
    EXPECT_EQ(parentPath("a/b"), "a");
    EXPECT_EQ(parentPath(""), ".");
    EXPECT_EQ(lastPathComponent("/a/b.txt"), "b.txt");
    EXPECT_EQ(lastPathComponent("/a/b/"), "b");
    EXPECT_EQ(lastPathComponent("/a"), "a");
    EXPECT_EQ(lastPathComponent("a"), "a");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent(""), "");
}

}  // namespace
}  // namespace orv
