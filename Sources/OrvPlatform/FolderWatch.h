#pragma once

#include <string>

#include <boost/asio/posix/stream_descriptor.hpp>

#include "OrvPlatform/FileDescriptor.h"
#include "OrvPlatform/Task.h"

namespace orv {

/// Tells when a file was put into a folder, replaced or taken away, by the system's own
/// notification. To be used on the core thread only, by one task at a time.
class FolderWatch {
public:
    /// Throws FileError when there is no such folder, or the system cannot watch it.
    FolderWatch(const asio::any_io_executor& executor, const std::string& path);

    /// Returns after a change; at once when there was one since the watch began or since this last
    /// returned. Several changes in a row may count as one. False: the folder itself is gone or
    /// was moved, and nothing more will come.
    Task<bool> changed();

private:
    struct Source {
        FileDescriptor notices;  // readable when there is news
        FileDescriptor folder;   // held open where the system needs it
    };

    // System by system.
    static Source begin(const std::string& path);
    static bool takeNotices(int notices);

    FileDescriptor folder;
    asio::posix::stream_descriptor notices;
};

}  // namespace orv
