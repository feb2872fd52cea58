#pragma once

#include <optional>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/ApplicationScan.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// The publisher as far as the bundle itself tells it: Apple's own applications and those whose
/// information list names the company.
std::optional<std::string> publisherOfBundle(const ApplicationBundle& application);

/// The publisher from the best source that has one: the bundle itself, its metadata, its
/// signature, its identifier. A tool runs only when every source before it has nothing.
Task<std::optional<std::string>> softwarePublisher(AuditRun& run, ApplicationBundle application);

/// One record for each installed application: "name", "version", "publisher", "installed_at".
Task<Json> installedSoftware(AuditRun& run);

}  // namespace orv
