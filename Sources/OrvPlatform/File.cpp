#include "OrvPlatform/File.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "OrvPlatform/FileDescriptor.h"

namespace orv {

namespace {

[[noreturn]] void throwLastError(const std::string& path) {
    throw FileError(errno, path);
}

void requireUsable(const std::string& path) {
    if (hasNul(path)) throw FileError(EINVAL, path);
}

FileInFolder fileAt(const std::string& path) {
    return {AT_FDCWD, path, path};
}

/// Calls again for as long as a signal interrupts.
template <typename Call>
auto uninterrupted(Call call) {
    decltype(call()) result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

/// Fills the buffer from its position on until it is full or the file ends.
std::size_t readInto(std::string& buffer, std::size_t position, int file, const std::string& path) {
    while (position < buffer.size()) {
        const ssize_t count = uninterrupted(
            [&] { return ::read(file, buffer.data() + position, buffer.size() - position); });
        if (count < 0) throwLastError(path);
        if (count == 0) break;
        position += static_cast<std::size_t>(count);
    }
    return position;
}

/// Reads to the end, whatever size the file said it had: it may grow, and those of /proc say 0.
std::string readToEnd(int file, std::uint64_t expectedBytes, std::uint64_t limitBytes,
                      const std::string& path) {
    std::string content;
    std::size_t length = 0;
    std::uint64_t capacity = std::min(expectedBytes, limitBytes);
    for (;;) {
        // One byte more than there should be shows the end, or that there is more.
        content.resize(static_cast<std::size_t>(capacity) + 1);
        length = readInto(content, length, file, path);
        if (length < content.size()) break;
        if (length > limitBytes) throw FileError("Larger than the limit", path);
        capacity = std::min(limitBytes, std::max<std::uint64_t>(2 * capacity, 4096));
    }
    content.resize(length);
    return content;
}

/// A new file beside the target that disappears again unless it takes the target's place.
class TemporaryFile {
public:
    TemporaryFile(const FileInFolder& replaces, mode_t mode)
        : target(replaces), name(unusedName(replaces.name)), file(create(mode)) {}

    ~TemporaryFile() {
        if (!renamed) ::unlinkat(target.folder, name.c_str(), 0);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    int descriptor() const { return file.get(); }

    void write(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count =
                uninterrupted([&] { return ::write(file.get(), bytes.data(), bytes.size()); });
            if (count < 0) throwLastError(target.shownPath);
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void replaceTarget() {
        const std::string& path = target.shownPath;
        if (uninterrupted([&] { return ::fsync(file.get()); }) != 0) throwLastError(path);
        // Some file systems report a failed write only now.
        if (::close(file.release()) != 0) throwLastError(path);
        const int folder = target.folder;
        if (::renameat(folder, name.c_str(), folder, target.name.c_str()) != 0) {
            throwLastError(path);
        }
        renamed = true;
    }

private:
    /// Unpredictable, so that nobody can have put anything there; short, whatever the target's
    /// name, because names have a limit.
    static std::string unusedName(const std::string& replaces) {
        std::random_device random;
        std::string name = lastPathComponent(replaces);
        if (name.size() > 200) name.clear();
        const auto half = [&random] { return static_cast<std::uint32_t>(random()); };
        return fmt::format("{}/.{}.{:08x}{:08x}.tmp", parentPath(replaces), name, half(), half());
    }

    FileDescriptor create(mode_t mode) {
        const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        const int number =
            uninterrupted([&] { return ::openat(target.folder, name.c_str(), flags, mode); });
        if (number < 0) throwLastError(target.shownPath);
        return FileDescriptor(number);
    }

    const FileInFolder target;
    const std::string name;
    bool renamed = false;
    FileDescriptor file;
};

/// Of the regular file that will be replaced.
std::optional<struct stat> attributesToKeep(const FileInFolder& file) {
    struct stat attributes{};
    const int failed = ::fstatat(file.folder, file.name.c_str(), &attributes, AT_SYMLINK_NOFOLLOW);
    if (failed != 0 || !S_ISREG(attributes.st_mode)) return std::nullopt;
    return attributes;
}

void handOn(const struct stat& attributes, int file, const std::string& path) {
    if (::geteuid() == 0 && ::fchown(file, attributes.st_uid, attributes.st_gid) != 0) {
        throwLastError(path);
    }
    // New content must not inherit the right to run as somebody else.
    if (::fchmod(file, attributes.st_mode & 0777) != 0) throwLastError(path);
}

}  // namespace

FileError::FileError(int systemError, const std::string& path)
    : FileError(std::generic_category().message(systemError), path) {
    error = systemError;
}

FileError::FileError(const std::string& reason, const std::string& path)
    : std::runtime_error(fmt::format("{}: {}", reason, path)), why(reason), where(path) {
}

bool hasNul(const std::string& path) {
    return path.find('\0') != std::string::npos;
}

bool fileExists(const std::string& path) {
    struct stat attributes{};
    return !hasNul(path) && ::stat(path.c_str(), &attributes) == 0;
}

std::string readFile(const std::string& path, std::uint64_t limitBytes, Links links) {
    requireUsable(path);
    return readFile(fileAt(path), limitBytes, links);
}

std::string readFile(const FileInFolder& place, std::uint64_t limitBytes, Links links) {
    const std::string& path = place.shownPath;
    const int linkFlag = links == Links::refuse ? O_NOFOLLOW : 0;
    const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | linkFlag;
    const FileDescriptor file(
        uninterrupted([&] { return ::openat(place.folder, place.name.c_str(), flags); }));
    if (file.get() < 0) throwLastError(path);
    struct stat attributes{};
    if (::fstat(file.get(), &attributes) != 0) throwLastError(path);
    if (!S_ISREG(attributes.st_mode)) throw FileError("Not a regular file", path);
    const auto size = static_cast<std::uint64_t>(attributes.st_size);
    if (size > limitBytes) throw FileError("Larger than the limit", path);
    return readToEnd(file.get(), size, limitBytes, path);
}

void writeFileAtomically(const std::string& path, std::string_view bytes,
                         const WriteOptions& options) {
    requireUsable(path);
    writeFileAtomically(fileAt(path), bytes, options);
}

void writeFileAtomically(const FileInFolder& file, std::string_view bytes,
                         const WriteOptions& options) {
    const std::optional<struct stat> replaced =
        options.keepAttributesOfReplaced ? attributesToKeep(file) : std::nullopt;
    // Nobody else reads along before the final mode is set.
    const bool modeFollows = replaced || options.mode;
    TemporaryFile temporary(file, modeFollows ? 0600 : 0666);
    temporary.write(bytes);
    if (replaced) {
        handOn(*replaced, temporary.descriptor(), file.shownPath);
    } else if (options.mode && ::fchmod(temporary.descriptor(), *options.mode) != 0) {
        throwLastError(file.shownPath);
    }
    temporary.replaceTarget();
}

void createDirectories(const std::string& path) {
    requireUsable(path);
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) throw FileError(error.value(), path);
    if (!std::filesystem::is_directory(path, error)) throw FileError(ENOTDIR, path);
}

std::string parentPath(const std::string& path) {
    const std::size_t nameEnd = path.find_last_not_of('/');
    if (nameEnd == std::string::npos) return path.empty() ? "." : "/";
    const std::size_t slash = path.rfind('/', nameEnd);
    if (slash == std::string::npos) return ".";
    const std::size_t parentEnd = path.find_last_not_of('/', slash);
    return parentEnd == std::string::npos ? "/" : path.substr(0, parentEnd + 1);
}

std::string lastPathComponent(const std::string& path) {
    const std::size_t nameEnd = path.find_last_not_of('/');
    if (nameEnd == std::string::npos) return path.empty() ? "" : "/";
    const std::size_t slash = path.rfind('/', nameEnd);
    const std::size_t begin = slash == std::string::npos ? 0 : slash + 1;
    return path.substr(begin, nameEnd - begin + 1);
}

}  // namespace orv
