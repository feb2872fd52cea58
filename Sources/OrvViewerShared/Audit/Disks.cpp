#include "OrvViewerShared/Audit/Disks.h"

#include <algorithm>

#include "OrvPlatform/Text.h"

namespace orv {

Json diskRecords(const std::vector<Volume>& volumes) {
    Json records = Json::array();
    for (const Volume& volume : volumes) {
        const std::uint64_t freeBytes = std::min(volume.freeBytes, volume.totalBytes);
        records.push_back({
            {"name", replacingInvalidUtf8(volume.name)},
            {"mount_point", replacingInvalidUtf8(volume.mountPoint)},
            {"total_bytes", volume.totalBytes},
            {"free_bytes", freeBytes},
            {"used_bytes", volume.totalBytes - freeBytes},
            {"file_system", volume.fileSystem},
        });
    }
    return records;
}

}  // namespace orv
