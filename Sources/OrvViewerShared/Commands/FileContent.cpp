#include "OrvViewerShared/Commands/FileContent.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "OrvPlatform/Base64.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/Commands/CommandError.h"

namespace orv {

namespace {

// Divisible by three, so that the encoded pieces join.
constexpr std::size_t pieceBytes = std::size_t{192} * 1024;

FileDescriptor openRegularFile(const std::string& location, std::uint64_t& sizeBytes) {
    if (hasNul(location)) throw FileError(EINVAL, location);
    FileDescriptor file(open(location.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) throw FileError(errno, location);
    struct stat status{};
    if (fstat(file.get(), &status) != 0) throw FileError(errno, location);
    if (!S_ISREG(status.st_mode)) throw FileError("Not a regular file", location);
    sizeBytes = static_cast<std::uint64_t>(status.st_size);
    return file;
}

[[noreturn]] void throwTooLarge(std::uint64_t sizeBytes, std::uint64_t limit) {
    throw fileTransferError(
        413, fmt::format("File is too large: {} bytes, limit {} bytes.", sizeBytes, limit));
}

/// Fills the buffer unless the file ends first.
std::size_t readPiece(int file, std::string& buffer, const std::string& location) {
    std::size_t length = 0;
    while (length < buffer.size()) {
        const ssize_t count = read(file, buffer.data() + length, buffer.size() - length);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError(errno, location);
        if (count == 0) break;
        length += static_cast<std::size_t>(count);
    }
    return length;
}

/// Returns the number of bytes read; the file may have grown or shrunk since it was opened.
std::uint64_t appendEncoded(std::string& out, int file, std::uint64_t limit,
                            const std::string& location) {
    std::string piece(pieceBytes, '\0');
    std::uint64_t total = 0;
    for (;;) {
        const std::size_t length = readPiece(file, piece, location);
        total += length;
        if (total > limit) throwTooLarge(total, limit);
        appendBase64(out, std::string_view(piece).substr(0, length));
        if (length < piece.size()) return total;
    }
}

}  // namespace

std::string downloadResult(const SystemRoot& root, const std::string& path,
                           std::uint64_t maximumBytes, const std::string& collectedAt) {
    const std::string location = root.locate(path);
    std::uint64_t sizeBytes = 0;
    const FileDescriptor file = openRegularFile(location, sizeBytes);
    if (sizeBytes > maximumBytes) throwTooLarge(sizeBytes, maximumBytes);

    std::string result =
        fmt::format(R"({{"collected_at":{},"content_base64":")", compactJson(collectedAt));
    constexpr std::size_t roomForTheRest = 16 * 1024;
    result.reserve(result.size() + base64EncodedSize(sizeBytes) + roomForTheRest);
    const std::uint64_t total = appendEncoded(result, file.get(), maximumBytes, location);
    result += fmt::format(R"(","file_name":{},"path":{},"size_bytes":{}}})",
                          compactJson(lastPathComponent(path)), compactJson(path), total);
    return result;
}

void placeFile(const SystemRoot& root, const std::string& path, const std::string& content,
               UploadOptions options) {
    const std::string location = root.locate(path);
    if (!options.overwrite && fileExists(location)) {
        throw fileTransferError(409, "File already exists: " + path);
    }
    if (options.createDirectories) createDirectories(parentPath(location));
    WriteOptions writing;
    writing.keepAttributesOfReplaced = true;
    writeFileAtomically(location, content, writing);
}

}  // namespace orv
