#include "OrvViewerShared/ViewerLogger.h"

#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Paths.h"

namespace orv {

namespace {

constexpr const char* logFileName = "wsparo.log";

/// One for the process: lines never mix, and emptying never races an append.
std::mutex& processWideLock() {
    static std::mutex lock;
    return lock;
}

// Other users can write to the fallback directory's parent: neither that directory nor the file may
// be a link, of either kind, that leads root's writes elsewhere. The standard directory is only
// root's to replace, who may keep the logs on another volume.
FileDescriptor openDirectory(const std::string& path, bool isFallback) {
    const int links = isFallback ? O_NOFOLLOW : 0;
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | links));
}

FileDescriptor openLogFile(int directory, int extraFlags) {
    return FileDescriptor(openat(
        directory, logFileName,
        O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_CREAT | extraFlags, 0644));
}

bool leavesRoomFor(std::uint64_t fileSize, std::uint64_t nextEntrySize) {
    return fileSize < ViewerLogger::maximumLogFileSize &&
           fileSize + nextEntrySize <= ViewerLogger::maximumLogFileSize;
}

FileDescriptor openWithRoomFor(int directory, std::size_t nextEntrySize) {
    FileDescriptor file = openLogFile(directory, 0);
    struct stat status{};
    if (!file.isOpen() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    const bool isOursAlone = status.st_nlink == 1;
    const bool hasRoom = leavesRoomFor(static_cast<std::uint64_t>(status.st_size), nextEntrySize);
    if (isOursAlone && hasRoom) return file;
    unlinkat(directory, logFileName, 0);
    return openLogFile(directory, O_EXCL);
}

void append(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

bool isUsableDirectory(const std::string& path) {
    try {
        createDirectories(path);
    } catch (const FileError&) {
        return false;  // there is nowhere to report it to
    }
    return access(path.c_str(), W_OK | X_OK) == 0;
}

}  // namespace

ViewerLogger::ViewerLogger(SystemRoot systemRoot, const Clock& usedClock)
    : root(std::move(systemRoot)), clock(usedClock) {
}

void ViewerLogger::info(std::string_view message) const {
    write("INFO", message);
}

void ViewerLogger::warn(std::string_view message) const {
    write("WARN", message);
}

void ViewerLogger::error(std::string_view message) const {
    write("ERROR", message);
}

void ViewerLogger::error(const std::exception& failure, std::string_view message) const {
    write("ERROR", fmt::format("{}: {}", message, failure.what()));
}

std::string ViewerLogger::logFile() const {
    return writableLogDirectory() + "/" + logFileName;
}

std::string ViewerLogger::writableLogDirectory() const {
    std::string directory = root.locate(paths::logDirectory);
    if (isUsableDirectory(directory)) return directory;
    directory = root.locate(paths::fallbackLogDirectory);
    isUsableDirectory(directory);  // used either way; a line that cannot be written is lost
    return directory;
}

void ViewerLogger::write(std::string_view level, std::string_view message) const {
    const std::lock_guard guard(processWideLock());
    const std::string line = fmt::format("{} [{}] {}\n", iso8601(clock.now()), level, message);
    const std::string directoryPath = writableLogDirectory();
    const bool isFallback = directoryPath == root.locate(paths::fallbackLogDirectory);
    const FileDescriptor directory = openDirectory(directoryPath, isFallback);
    if (!directory.isOpen()) return;
    const FileDescriptor file = openWithRoomFor(directory.get(), line.size());
    if (file.isOpen()) append(file.get(), line);
}

}  // namespace orv
