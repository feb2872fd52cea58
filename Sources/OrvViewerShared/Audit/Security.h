#pragma once

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// "source": "macos-native", and under "firewall", "filevault" and "sip" what the tools say of the
/// firewall, the disk's encryption and the system's integrity protection, or "unknown".
Task<Json> security(AuditRun& run);

/// "source": "softwareupdate", the tool's list as "pending_raw", and "last_update_at", which the
/// tool does not tell.
Task<Json> patches(AuditRun& run);

}  // namespace orv
