#pragma once

/// The fixed places of the system, as absolute paths of the Mac; to be opened through SystemRoot.
namespace orv::paths {

inline constexpr const char* configDirectory = "/Library/Application Support/Wsparo Brenvox";
inline constexpr const char* configPath =
    "/Library/Application Support/Wsparo Brenvox/wsparo.settings.json";
inline constexpr const char* legacyConfigDirectory = "/Library/Application Support/Orv-Desk Viewer";
inline constexpr const char* legacyConfigPath =
    "/Library/Application Support/Orv-Desk Viewer/viewer.settings.json";
inline constexpr const char* statePath =
    "/Library/Application Support/Wsparo Brenvox/wsparo.state.json";
inline constexpr const char* legacyStatePath =
    "/Library/Application Support/Orv-Desk Viewer/viewer.state.json";
inline constexpr const char* logDirectory = "/Library/Logs/Wsparo Brenvox";
inline constexpr const char* fallbackLogDirectory = "/tmp/Wsparo Brenvox";

}  // namespace orv::paths
