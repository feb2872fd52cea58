#pragma once

#include <vector>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Volumes.h"

namespace orv {

/// "name", "mount_point", "total_bytes", "free_bytes", "used_bytes", "file_system" of each volume.
Json diskRecords(const std::vector<Volume>& volumes);

}  // namespace orv
