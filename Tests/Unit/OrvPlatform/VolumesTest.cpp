#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/MountTable.h"
#include "OrvPlatform/Volumes.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(MountTableTest, readsEscapedBlanksAndSkipsIncompleteLines) {
    const std::vector<MountEntry> entries = parseMounts(
        "/dev/sda1 / ext4 rw,relatime 0 0\n"
        "broken\n"
        "\n"
        "//nas/share /Volumes/Wsp\\303\\263lny\\040dysk cifs rw 0 0\n"
        "x /a\\04 y\n");
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].device, "/dev/sda1");
    EXPECT_EQ(entries[0].mountPoint, "/");
    EXPECT_EQ(entries[0].fileSystem, "ext4");
    EXPECT_EQ(entries[1].mountPoint, "/Volumes/Wspólny dysk");
    EXPECT_EQ(entries[2].mountPoint, "/a\\04");
}

class VolumesTest : public testing::Test {
protected:
    void mounts(const std::string& table) {
        createDirectories(directory.path("proc/self"));
        writeFileAtomically(directory.path("proc/self/mounts"), table);
    }

    std::vector<std::string> mountPoints() const {
        std::vector<std::string> points;
        for (const Volume& volume : mountedVolumes(root))
            points.push_back(volume.mountPoint);
        return points;
    }

    TemporaryDirectory directory;
    SystemRoot root{directory.path()};
};

TEST_F(VolumesTest, leaveOutPseudoFileSystemsDuplicatesAndWhatIsNotThere) {
    createDirectories(directory.path("Volumes/Backup"));
    mounts(
        "/dev/disk1 / apfs rw 0 0\n"
        "proc /proc proc rw 0 0\n"
        "tmpfs /run tmpfs rw 0 0\n"
        "/dev/disk1 /Volumes/Backup apfs rw 0 0\n"
        "/dev/disk2 /Volumes/Backup hfs rw 0 0\n"
        "/dev/disk3 /Volumes/Gone hfs rw 0 0\n");
    EXPECT_THAT(mountPoints(), ElementsAre("/", "/Volumes/Backup"));
    const Volume backup = mountedVolumes(root).at(1);
    EXPECT_EQ(backup.name, "Backup");
    EXPECT_EQ(backup.fileSystem, "hfs");
    EXPECT_GT(backup.totalBytes, 0U);
    EXPECT_LE(backup.freeBytes, backup.totalBytes);
}

TEST_F(VolumesTest, ofAnEmptyTableAreNone) {
    mounts("");
    EXPECT_THAT(mountPoints(), IsEmpty());
}

TEST(RealVolumesTest, haveASizeAndAppearOnce) {
    std::vector<std::string> points;
    for (const Volume& volume : mountedVolumes(SystemRoot())) {
        EXPECT_GT(volume.totalBytes, 0U) << volume.mountPoint;
        EXPECT_FALSE(volume.name.empty());
        points.push_back(volume.mountPoint);
    }
    std::sort(points.begin(), points.end());
    EXPECT_EQ(std::unique(points.begin(), points.end()), points.end());
}

}  // namespace
}  // namespace orv
