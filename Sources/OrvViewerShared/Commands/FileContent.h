#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// The result of "file_download" as JSON text, put together while the file is read, so that the
/// content is held once, in its encoded form. Blocks. Throws CommandError 413 for a file over the
/// limit, FileError when it cannot be read or is no regular file.
std::string downloadResult(const SystemRoot& root, const std::string& path,
                           std::uint64_t maximumBytes, const std::string& collectedAt);

struct UploadOptions {
    bool overwrite = false;
    bool createDirectories = true;
};

/// Puts the file in its place as a whole. Blocks. Throws CommandError 409 when there is one
/// already, FileError when it cannot be written.
void placeFile(const SystemRoot& root, const std::string& path, const std::string& content,
               UploadOptions options);

}  // namespace orv
