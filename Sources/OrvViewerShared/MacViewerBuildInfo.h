#pragma once

#include <string>

#include "OrvViewerShared/BuildConfig.h"

namespace orv {

struct MacViewerBuildInfo {
    /// The agent's own version.
    static inline const std::string version = buildConfig::version;
};

}  // namespace orv
