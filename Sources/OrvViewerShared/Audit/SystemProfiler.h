#pragma once

#include <string>
#include <vector>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// The system profiler's answer for the data types, by one run: an object with an array for each.
/// Null when there is no answer or it is no JSON object. Of a data type's array, only those items
/// are kept that are wanted.
Task<Json> systemProfilerJson(AuditRun& run, std::vector<std::string> dataTypes,
                              WantsMoreItems wantsMore = nullptr);

}  // namespace orv
