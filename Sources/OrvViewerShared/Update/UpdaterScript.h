#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orv {

/// Everything that differs between one update and another.
struct UpdaterScriptPlan {
    std::string packageUrl;  // validated
    std::string sha256;      // validated, lower case
    std::int64_t sizeBytes = 0;
    std::string currentVersion;
    std::string availableVersion;  // as the server spells it, so possibly anything
    std::string reason;
};

/// The whole script, for bash 3.2. Whatever the plan's texts hold, they stay texts. All paths are
/// the Mac's own.
std::string updaterScript(const UpdaterScriptPlan& plan);

/// Where the package of a version is downloaded to: always right inside the updates directory.
std::string updatePackagePath(std::string_view version);

/// The value as a JSON text, quotes included, slashes not escaped; an empty one when it is not
/// valid UTF-8.
std::string jsonLiteral(const std::string& value);

}  // namespace orv
