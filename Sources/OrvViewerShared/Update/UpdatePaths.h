#pragma once

/// Where an update leaves its traces, as absolute paths of the Mac; to be opened through
/// SystemRoot.
namespace orv::paths {

/// Every local user may put files here; only their owner may take them away.
inline constexpr const char* updateRuntimeDirectory =
    "/Library/Application Support/Wsparo Brenvox/runtime";
inline constexpr const char* updateRequestPath =
    "/Library/Application Support/Wsparo Brenvox/runtime/update-request.json";
inline constexpr const char* updateStatusPath =
    "/Library/Application Support/Wsparo Brenvox/runtime/update-status.json";
inline constexpr const char* lastAutomaticUpdateCheckPath =
    "/Library/Application Support/Wsparo Brenvox/runtime/last-automatic-update-check.json";

/// Only root writes here.
inline constexpr const char* updatesDirectory =
    "/Library/Application Support/Wsparo Brenvox/updates";
inline constexpr const char* updaterScriptPath =
    "/Library/Application Support/Wsparo Brenvox/updates/wsparo-updater.sh";
inline constexpr const char* updaterJobPath =
    "/Library/Application Support/Wsparo Brenvox/updates/pl.brenvox.wsparo.updater.plist";
inline constexpr const char* updateLogPath = "/Library/Logs/Wsparo Brenvox/wsparo-update.log";

}  // namespace orv::paths
