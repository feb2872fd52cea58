#include <cstdio>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

enum class FullDiskOutcome { asPromised = 0, mountNotAllowed = 77, broken = 1 };

/// In a process of its own with a mount table of its own: a folder of 64 KiB that fills up.
FullDiskOutcome tryFullDisk(const std::string& folder) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=64k") != 0) {
        return FullDiskOutcome::mountNotAllowed;
    }
    const std::string path = folder + "/file";
    writeFileAtomically(path, "old");
    std::string error;
    try {
        writeFileAtomically(path, std::string(200'000, 'x'));
    } catch (const FileError& failure) {
        error = failure.what();
    }
    const bool isWhole = error == "No space left on device: " + path &&
                         readFile(path, 100) == "old" &&
                         namesIn(folder) == std::vector<std::string>{"file"};
    return isWhole ? FullDiskOutcome::asPromised : FullDiskOutcome::broken;
}

TEST(FileFullDiskTest, aFullDiskLeavesTheOldFileWholeAndNothingBeside) {
    const TemporaryDirectory folder;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        FullDiskOutcome outcome = FullDiskOutcome::broken;
        try {
            outcome = tryFullDisk(folder.path());
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
        }
        ::_exit(static_cast<int>(outcome));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == static_cast<int>(FullDiskOutcome::mountNotAllowed)) {
        GTEST_SKIP() << "mounting a small disk needs root and the right to mount";
    }
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(FullDiskOutcome::asPromised));
}

}  // namespace
}  // namespace orv
