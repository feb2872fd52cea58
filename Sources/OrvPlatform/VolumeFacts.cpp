#include "OrvPlatform/VolumeFacts.h"

#include <sys/statvfs.h>

namespace orv {

std::optional<VolumeCapacity> volumeCapacity(const std::string& path) {
    struct statvfs status{};
    if (statvfs(path.c_str(), &status) != 0) return std::nullopt;
    const std::uint64_t unit = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
    return VolumeCapacity{unit * status.f_blocks, unit * status.f_bavail};
}

}  // namespace orv
