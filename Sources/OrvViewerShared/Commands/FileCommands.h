#pragma once

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/OrvDeskApiClient.h"

namespace orv {

/// Lets a consultant browse the file system, fetch a file and place a file. Contents travel inside
/// the JSON as Base64. The daemon reaches every path; none is refused. What blocks runs on the
/// worker pool. Errors: CommandError ("OrvViewerFileTransfer"; 400, 404, 409, 413), FileError.
class FileCommands {
public:
    struct Parts {
        WorkerPool& workers;
        const Clock& clock;
        SystemRoot root;
    };

    explicit FileCommands(Parts parts) : parts(std::move(parts)) {}

    /// "path" (default "/"; empty, "roots", "drives" or "volumes" for the starting places) and
    /// "max_items" (10 to 2000, default 500).
    Task<CommandResult> listFiles(Json payload);

    /// "path" and "max_bytes" (1 KiB to 25 MiB, default 10 MiB).
    Task<CommandResult> downloadFile(Json payload);

    /// "target_path", "content_base64" (strict), "overwrite" (default false) and
    /// "create_directories" (default true).
    Task<CommandResult> uploadFile(Json payload);

private:
    Parts parts;
};

}  // namespace orv
