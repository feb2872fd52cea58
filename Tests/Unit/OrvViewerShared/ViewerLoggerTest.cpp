#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "Support/FakeClock.h"
#include "Support/FileFacts.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

constexpr std::uint64_t limit = 10'485'760;

class ViewerLoggerTest : public testing::Test {
protected:
    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    FakeClock clock;
    ViewerLogger logger{root, clock};
    const std::string standardFile = root.locate("/Library/Logs/Wsparo Brenvox/wsparo.log");
    const std::string fallbackFile = root.locate("/tmp/Wsparo Brenvox/wsparo.log");

    static std::string content(const std::string& path) { return readFile(path, 20'000'000); }

    void putFileOfSize(std::uint64_t size) const {
        createDirectories(parentPath(standardFile));
        std::ofstream(standardFile) << "old line\n";
        std::filesystem::resize_file(standardFile, size);
    }
};

TEST_F(ViewerLoggerTest, writesTimeLevelAndMessage) {
    logger.info("Wsparo Brenvox macOS daemon started.");
    logger.warn("careful");
    logger.error("broken\nin two lines");
    logger.error(std::runtime_error("Connection refused (cannotConnectToHost)"),
                 "Heartbeat failed");
    EXPECT_EQ(content(standardFile),
              "2026-03-01T09:15:02Z [INFO] Wsparo Brenvox macOS daemon started.\n"
              "2026-03-01T09:15:02Z [WARN] careful\n"
              "2026-03-01T09:15:02Z [ERROR] broken\nin two lines\n"
              "2026-03-01T09:15:02Z [ERROR] Heartbeat failed: Connection refused "
              "(cannotConnectToHost)\n");
    EXPECT_EQ(logger.logFile(), standardFile);
}

TEST_F(ViewerLoggerTest, aLineThatFillsTheFileExactlyIsAppended) {
    const std::string line = "2026-03-01T09:15:02Z [INFO] x\n";
    putFileOfSize(limit - line.size());
    logger.info("x");
    EXPECT_EQ(std::filesystem::file_size(standardFile), limit);
}

TEST_F(ViewerLoggerTest, oneByteMoreEmptiesTheFileFirst) {
    const std::string line = "2026-03-01T09:15:02Z [INFO] x\n";
    putFileOfSize(limit - line.size() + 1);
    logger.info("x");
    EXPECT_EQ(content(standardFile), line);
}

TEST_F(ViewerLoggerTest, aFileThatSomebodyElseFilledIsEmptied) {
    putFileOfSize(limit);
    logger.info("x");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] x\n");
    putFileOfSize(limit + 500'000);
    logger.info("y");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] y\n");
}

TEST_F(ViewerLoggerTest, whoeverTakesTheFileAwayKeepsItsLines) {
    logger.info("kept");
    std::filesystem::rename(standardFile, standardFile + ".0");
    logger.info("goes on");
    EXPECT_EQ(content(standardFile + ".0"), "2026-03-01T09:15:02Z [INFO] kept\n");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] goes on\n");

    // newsyslog puts an empty file there itself.
    std::filesystem::rename(standardFile, standardFile + ".1");
    std::ofstream(standardFile).close();
    logger.info("again");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] again\n");
}

TEST_F(ViewerLoggerTest, aLineOverTheLimitStandsAlone) {
    logger.info("first");
    logger.info(std::string(limit, 'x'));
    EXPECT_GT(std::filesystem::file_size(standardFile), limit);
    logger.info("next");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] next\n");
}

TEST_F(ViewerLoggerTest, movesToTheFallbackAndBack) {
    createDirectories(root.locate("/Library"));
    std::ofstream(root.locate("/Library/Logs")) << "in the way";
    logger.info("elsewhere");
    EXPECT_EQ(content(fallbackFile), "2026-03-01T09:15:02Z [INFO] elsewhere\n");

    std::filesystem::remove(root.locate("/Library/Logs"));
    logger.info("home again");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] home again\n");
}

TEST_F(ViewerLoggerTest, theAdministratorMayKeepTheLogsElsewhere) {
    createDirectories(folder.path("elsewhere"));
    createDirectories(root.locate("/Library/Logs"));
    std::filesystem::create_directory_symlink(folder.path("elsewhere"),
                                              root.locate(paths::logDirectory));
    logger.info("x");
    EXPECT_EQ(content(folder.path("elsewhere/wsparo.log")), "2026-03-01T09:15:02Z [INFO] x\n");
}

TEST_F(ViewerLoggerTest, everybodyMayReadTheLog) {
    const mode_t before = ::umask(022);
    logger.info("x");
    ::umask(before);
    EXPECT_EQ(modeOf(standardFile), 0644U);
}

TEST_F(ViewerLoggerTest, withoutAnyFolderTheLineIsLostQuietly) {
    std::ofstream(root.locate("/Library")) << "in the way";
    std::ofstream(root.locate("/tmp")) << "in the way";
    logger.info("lost");
    EXPECT_FALSE(fileExists(standardFile));
    EXPECT_FALSE(fileExists(fallbackFile));
}

TEST_F(ViewerLoggerTest, neverWritesThroughAPlantedLink) {
    const std::string secret = folder.path("secret");
    std::ofstream(secret) << "untouched";
    createDirectories(root.locate(paths::logDirectory));
    std::filesystem::create_symlink(secret, standardFile);
    logger.info("x");
    EXPECT_EQ(content(secret), "untouched");
}

TEST_F(ViewerLoggerTest, aPlantedHardLinkIsReplacedByALogOfItsOwn) {
    const std::string secret = folder.path("secret");
    std::ofstream(secret) << "untouched";
    createDirectories(root.locate(paths::logDirectory));
    std::filesystem::create_hard_link(secret, standardFile);
    logger.info("x");
    EXPECT_EQ(content(secret), "untouched");
    EXPECT_EQ(content(standardFile), "2026-03-01T09:15:02Z [INFO] x\n");
}

TEST_F(ViewerLoggerTest, aPlantedFolderIsNotFollowedElsewhere) {
    createDirectories(folder.path("elsewhere"));
    createDirectories(parentPath(root.locate(paths::fallbackLogDirectory)));
    createDirectories(parentPath(root.locate(paths::logDirectory)));
    std::ofstream(root.locate(paths::logDirectory)) << "in the way";
    std::filesystem::create_directory_symlink(folder.path("elsewhere"),
                                              root.locate(paths::fallbackLogDirectory));
    logger.info("x");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("elsewhere")));
}

TEST_F(ViewerLoggerTest, aPlantedFifoOrFolderDoesNotHoldTheDaemon) {
    createDirectories(root.locate(paths::logDirectory));
    ASSERT_EQ(mkfifo(standardFile.c_str(), 0600), 0);
    logger.info("lost");
    std::filesystem::remove(standardFile);
    createDirectories(standardFile);
    logger.info("lost");
    EXPECT_TRUE(std::filesystem::is_directory(standardFile));
}

TEST_F(ViewerLoggerTest, linesOfManyThreadsAndAnotherWriterNeverMix) {
    const ViewerLogger besideUs(root, clock);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            const ViewerLogger& mine = i % 2 == 0 ? logger : besideUs;
            for (int n = 0; n < 50; ++n)
                mine.info(std::string(200, static_cast<char>('a' + i)));
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::ifstream lines(standardFile);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line.size(), 28u + 200u);
        ASSERT_EQ(line.find_first_not_of(line.back(), 28), std::string::npos) << line;
    }
    EXPECT_EQ(count, 400);
}

/// Each look at it is a second later, and lets other threads go first.
class HurryingClock final : public Clock {
public:
    WallTime now() const override {
        const int second = ++looks;
        std::this_thread::yield();
        return start + std::chrono::seconds(second);
    }
    MonotonicTime monotonicNow() const override { return {}; }
    Task<void> sleepFor(std::chrono::nanoseconds) override { co_return; }

private:
    const WallTime start = FakeClock().now();
    mutable std::atomic<int> looks = 0;
};

TEST_F(ViewerLoggerTest, linesStandInTheOrderOfTheirTimesAndNoneIsLostWhenTheFileIsEmptied) {
    putFileOfSize(limit);
    const HurryingClock hurrying;
    const ViewerLogger busy(root, hurrying);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 50; ++n)
                busy.info("x");
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::vector<std::string> lines;
    std::ifstream file(standardFile);
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    EXPECT_EQ(lines.size(), 400U);
    EXPECT_TRUE(std::is_sorted(lines.begin(), lines.end()));
}

}  // namespace
}  // namespace orv
