#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace orv {

/// A failed operation on a file; what() reads "Permission denied: /path".
class FileError : public std::runtime_error {
public:
    FileError(int systemError, const std::string& path);
    /// For refusals that have no error number ("Not a regular file").
    FileError(const std::string& reason, const std::string& path);

    /// errno's value, or 0.
    int systemError() const { return error; }

    /// What failed, without the path: for callers that show another one than they opened.
    const std::string& reason() const { return why; }
    const std::string& path() const { return where; }

private:
    int error = 0;
    std::string why;
    std::string where;
};

/// A name in a folder that is held open, so that nobody can put another folder in its place.
struct FileInFolder {
    int folder = -1;  // AT_FDCWD: the name is a path
    std::string name;
    std::string shownPath;  // for error texts
};

/// The system would take such a path for the part before the NUL.
bool hasNul(const std::string& path);

/// Whether something is there, links followed.
bool fileExists(const std::string& path);

enum class Links { follow, refuse };

/// The whole content of a regular file, opened without blocking on whatever else may stand at its
/// path. Throws FileError when it cannot be read, is no regular file, is a link and those are
/// refused, or holds more than the limit, also when it grows beyond it while being read.
std::string readFile(const std::string& path, std::uint64_t limitBytes,
                     Links links = Links::follow);
std::string readFile(const FileInFolder& file, std::uint64_t limitBytes,
                     Links links = Links::follow);

struct WriteOptions {
    /// Set on the open file whatever the umask; absent: 0666 less the umask.
    std::optional<mode_t> mode;
    /// A regular file that is replaced hands its permissions (and, for root, its owner and group)
    /// on, but not set-user-ID and set-group-ID; wins over mode.
    bool keepAttributesOfReplaced = false;
};

/// Replaces the file's content as a whole: written to a private temporary file beside the target
/// (created exclusively, with an unpredictable name), synced, renamed over it. On any failure the
/// temporary file is removed, the old file stays as it was, and FileError is thrown.
void writeFileAtomically(const std::string& path, std::string_view bytes,
                         const WriteOptions& options = {});
void writeFileAtomically(const FileInFolder& file, std::string_view bytes,
                         const WriteOptions& options = {});

/// Creates the folder with all missing folders above it. Throws FileError; no error when it exists.
void createDirectories(const std::string& path);

/// The folder of an absolute path: "/a" for "/a/b" and "/a/b/", "/" for "/a" and "/". For a
/// relative path without a folder: ".".
std::string parentPath(const std::string& path);

/// The last component, a "/" at the end left out: "b" for "/a/b" and "/a/b/"; "/" for "/".
std::string lastPathComponent(const std::string& path);

}  // namespace orv
