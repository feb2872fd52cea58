#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// The names in a folder, sorted, at most so many; none when it cannot be read. For a worker.
std::vector<std::string> directoryListing(const std::string& location, std::size_t maximumCount);

/// What remote control of this Mac offers and needs.
Json remoteCapabilities();

/// The "audit" object of the inventory.
Task<Json> auditDetails(AuditRun& run);

}  // namespace orv
