#include "OrvViewerShared/ViewerSettings.h"

#include <algorithm>
#include <vector>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/Url.h"
#include "OrvViewerShared/BuildConfig.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

constexpr std::uint64_t settingsFileLimit = 1 << 20;

struct Candidate {
    std::string path;      // as the Mac calls it
    std::string location;  // on this file system
};

std::vector<Candidate> candidates(const SettingsSearch& search) {
    std::vector<Candidate> list;
    const auto addFixed = [&](const char* path) {
        list.push_back({path, search.root.locate(path)});
    };
    const auto addAsGiven = [&](const std::string& path) { list.push_back({path, path}); };

    if (search.environmentPath) addAsGiven(*search.environmentPath);
    addFixed(paths::configPath);
    addFixed(paths::legacyConfigPath);
    addAsGiven(search.currentDirectory + "/viewer.settings.json");
    addAsGiven(search.currentDirectory + "/wsparo.settings.json");
    addAsGiven(search.mainBundlePath + "/Contents/Resources/viewer.settings.json");
    return list;
}

Candidate firstExisting(const std::vector<Candidate>& list) {
    const auto found = std::find_if(list.begin(), list.end(), [](const Candidate& candidate) {
        return fileExists(candidate.location);
    });
    if (found == list.end()) {
        throw ViewerError::configuration("wsparo.settings.json was not found.");
    }
    return *found;
}

bool isHttpsUrl(const std::string& text) {
    const std::optional<Url> url = parseUrl(text);
    return url && lowercased(url->scheme) == "https" && !trimmed(url->host).empty();
}

}  // namespace

ViewerSettings ViewerSettings::load(const SettingsSearch& search) {
    const Candidate chosen = firstExisting(candidates(search));
    auto settings = parseJson(readFile(chosen.location, settingsFileLimit)).get<ViewerSettings>();
    const bool isMigrated = settings.migrateLegacyServerHost();
    settings.validate();
    if (chosen.path != paths::configPath || isMigrated) {
        try {
            settings.write(search.root.locate(paths::configPath));
        } catch (const FileError&) {
            // The settings are good all the same; the next start searches again.
        }
    }
    return settings;
}

void ViewerSettings::validate() {
    serverBaseUrl = normalizedServerBaseUrl();
    viewerToken = normalizedViewerToken();
    auditIntervalMinutes = std::max<std::int64_t>(auditIntervalMinutes, 5);
    // 30 was the default of early installers and meant "often enough".
    heartbeatIntervalSeconds =
        heartbeatIntervalSeconds == 30 ? 300 : std::max<std::int64_t>(heartbeatIntervalSeconds, 60);
    commandPollIntervalSeconds = std::max<std::int64_t>(commandPollIntervalSeconds, 30);
    chatPollIntervalSeconds = std::clamp<std::int64_t>(chatPollIntervalSeconds, 1, 5);
    controlReconnectMaxSeconds = std::clamp<std::int64_t>(controlReconnectMaxSeconds, 5, 300);
    if (!isHttpsUrl(serverBaseUrl)) {
        throw ViewerError::configuration("serverBaseUrl must be a valid HTTPS URL.");
    }
}

bool ViewerSettings::migrateLegacyServerHost() {
    const std::optional<Url> url = parseUrl(normalizedServerBaseUrl());
    if (!url || !equalsIgnoringCase(url->host, buildConfig::retiredServerHost)) return false;
    serverBaseUrl = buildConfig::defaultServerBaseUrl;
    return true;
}

void ViewerSettings::write(const std::string& path) const {
    createDirectories(parentPath(path));
    writeFileAtomically(path, prettyJson(*this));
}

std::string ViewerSettings::normalizedServerBaseUrl() const {
    return trimmedTrailingSlash(trimmed(serverBaseUrl));
}

std::string ViewerSettings::normalizedViewerToken() const {
    return trimmed(viewerToken);
}

void to_json(Json& out, const ViewerSettings& settings) {
    out = Json{{"serverBaseUrl", settings.serverBaseUrl},
               {"viewerToken", settings.viewerToken},
               {"auditIntervalMinutes", settings.auditIntervalMinutes},
               {"heartbeatIntervalSeconds", settings.heartbeatIntervalSeconds},
               {"commandPollIntervalSeconds", settings.commandPollIntervalSeconds},
               {"chatPollIntervalSeconds", settings.chatPollIntervalSeconds},
               {"controlReconnectMaxSeconds", settings.controlReconnectMaxSeconds},
               {"notificationsEnabled", settings.notificationsEnabled}};
}

void from_json(const Json& in, ViewerSettings& settings) {
    settings.serverBaseUrl = requiredText(in, "serverBaseUrl");
    settings.viewerToken = requiredText(in, "viewerToken");
    settings.auditIntervalMinutes = requiredInteger(in, "auditIntervalMinutes");
    settings.heartbeatIntervalSeconds = requiredInteger(in, "heartbeatIntervalSeconds");
    settings.commandPollIntervalSeconds = requiredInteger(in, "commandPollIntervalSeconds");
    settings.chatPollIntervalSeconds = requiredInteger(in, "chatPollIntervalSeconds");
    settings.controlReconnectMaxSeconds = requiredInteger(in, "controlReconnectMaxSeconds");
    settings.notificationsEnabled = optionalBool(in, "notificationsEnabled").value_or(true);
}

}  // namespace orv
