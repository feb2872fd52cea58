#include "WsparoCompanion/AgentFiles.h"

#include <exception>
#include <vector>

#include "OrvPlatform/Directory.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

struct Place {
    std::string path;      // as the Mac calls it
    std::string location;  // on this file system
};

/// The first of the places at which there is something.
template <typename Record>
Reading<Record> readFirst(const std::vector<Place>& places, const char* usualPath) {
    for (const Place& place : places) {
        Reading<Record> reading = readRecord<Record>(place.location, place.path);
        if (reading.condition != FileCondition::missing) return reading;
    }
    return {FileCondition::missing, {}, usualPath, ""};
}

}  // namespace

Reading<ViewerSettings> readSettings(const SystemRoot& root,
                                     const std::optional<std::string>& environmentPath) {
    std::vector<Place> places;
    if (environmentPath) places.push_back({*environmentPath, *environmentPath});
    for (const char* path : {paths::configPath, paths::legacyConfigPath}) {
        places.push_back({path, root.locate(path)});
    }
    auto reading = readFirst<ViewerSettings>(places, paths::configPath);
    if (!reading.isGood()) return reading;
    try {
        reading.record.migrateLegacyServerHost();
        reading.record.validate();
    } catch (const std::exception& error) {
        reading.condition = FileCondition::broken;
        reading.reason = error.what();
    }
    return reading;
}

Reading<ViewerState> readState(const SystemRoot& root) {
    return readFirst<ViewerState>({{paths::statePath, root.locate(paths::statePath)},
                                   {paths::legacyStatePath, root.locate(paths::legacyStatePath)}},
                                  paths::statePath);
}

Reading<ViewerUpdateStatus> readUpdateStatus(const Surroundings& surroundings) {
    const ViewerUpdateCoordinator coordinator(
        {surroundings.root, surroundings.clock, surroundings.logger});
    if (auto status = coordinator.readStatus()) {
        return {FileCondition::good, *status, paths::updateStatusPath, ""};
    }
    const bool isThere =
        readAttributes(surroundings.root.locate(paths::updateStatusPath)).has_value();
    return {
        isThere ? FileCondition::broken : FileCondition::missing, {}, paths::updateStatusPath, ""};
}

ViewerSettings requiredSettings(const Surroundings& surroundings) {
    Reading<ViewerSettings> settings =
        readSettings(surroundings.root, surroundings.environmentSettingsPath);
    if (settings.isGood()) return settings.record;
    const bool isForbidden = settings.condition == FileCondition::forbidden;
    throw CommandFailure(isForbidden ? exitCode::noPermission : exitCode::notSetUp,
                         explain(settings, surroundings));
}

std::string explain(const Reading<ViewerSettings>& settings, const Surroundings& surroundings) {
    switch (settings.condition) {
        case FileCondition::missing: return surroundings.say(texts::settingsMissing, settings.path);
        case FileCondition::forbidden:
            return surroundings.say(texts::settingsForbidden, settings.path);
        case FileCondition::broken:
            return surroundings.say(texts::settingsBroken, settings.path, settings.reason);
        case FileCondition::good: break;
    }
    return "";
}

std::string explain(const Reading<ViewerState>& state, const Surroundings& surroundings) {
    switch (state.condition) {
        case FileCondition::missing: return surroundings.say(texts::stateMissing);
        case FileCondition::forbidden: return surroundings.say(texts::stateForbidden, state.path);
        case FileCondition::broken: return surroundings.say(texts::stateBroken, state.path);
        case FileCondition::good: break;
    }
    return "";
}

}  // namespace orv::companion
