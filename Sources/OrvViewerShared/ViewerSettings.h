#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// Where settings are looked for besides the fixed places.
struct SettingsSearch {
    SystemRoot root;
    std::optional<std::string> environmentPath;  // ORV_VIEWER_SETTINGS_PATH, if it is set at all
    std::string currentDirectory;
    std::string mainBundlePath;
};

/// The daemon's configuration: read once at the start, immutable afterwards. The fields' names
/// are the keys of the file.
struct ViewerSettings {
    static constexpr const char* environmentVariable = "ORV_VIEWER_SETTINGS_PATH";

    std::string serverBaseUrl;                  // after validation: HTTPS, without trailing slashes
    std::string viewerToken;                    // authorises the organisation; may be empty
    std::int64_t auditIntervalMinutes = 0;      // after validation: at least 5
    std::int64_t heartbeatIntervalSeconds = 0;  // at least 60
    std::int64_t commandPollIntervalSeconds = 0;  // at least 30
    std::int64_t chatPollIntervalSeconds = 0;     // 1 to 5
    std::int64_t controlReconnectMaxSeconds = 0;  // 5 to 300
    bool notificationsEnabled = true;

    /// Finds, reads, migrates and validates the settings; copies them to the standard place when
    /// they were found elsewhere or were migrated. Throws ViewerError::configuration when there
    /// are none or they cannot work, FileError or DecodingError when they cannot be read.
    static ViewerSettings load(const SettingsSearch& search);

    /// Normalises and clamps in place. Throws ViewerError::configuration for a server URL that is
    /// not HTTPS; the numbers are clamped even then.
    void validate();

    /// Moves settings that name the retired host to the default server; true when it did.
    bool migrateLegacyServerHost();

    /// Replaces the file as a whole. Throws FileError.
    void write(const std::string& path) const;

    std::string normalizedServerBaseUrl() const;
    std::string normalizedViewerToken() const;
    bool hasViewerToken() const { return !normalizedViewerToken().empty(); }

    bool operator==(const ViewerSettings&) const = default;
};

void to_json(Json& out, const ViewerSettings& settings);
/// Throws DecodingError naming the key that is missing or of a wrong type.
void from_json(const Json& in, ViewerSettings& settings);

}  // namespace orv
