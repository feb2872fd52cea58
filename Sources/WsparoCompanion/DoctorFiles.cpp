#include "WsparoCompanion/DoctorFiles.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include <fmt/format.h>

#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/CustomerSession.h"
#include "WsparoCompanion/DoctorTexts.h"
#include "WsparoCompanion/TimeTexts.h"

namespace orv::companion {

namespace {

namespace fs = std::filesystem;

constexpr unsigned modeBits = 07777;
constexpr unsigned writableByOthers = 0002;
constexpr unsigned readableByOthers = 0077;
constexpr unsigned writableByOwner = 0200;

struct SharedFolder {
    const char* path;
    unsigned mode;
    bool isMadeLater;
};

constexpr SharedFolder sharedFolders[] = {
    {paths::configDirectory, 0755, false},
    {paths::updateRuntimeDirectory, 01777, true},
    {RemoteChatStore::directory, 0777, true},
};

std::string octal(unsigned mode) {
    return fmt::format("{:04o}", mode);
}

unsigned modeOf(const fs::file_status& status) {
    return static_cast<unsigned>(status.permissions()) & modeBits;
}

/// A folder that nobody but its owner may write to can be stricter or laxer in reading.
bool isModeGood(unsigned mode, unsigned wanted) {
    const bool isShared = (wanted & writableByOthers) != 0;
    return isShared ? mode == wanted : (mode & writableByOthers) == 0;
}

void diagnoseFolder(const SharedFolder& folder, const Surroundings& surroundings,
                    DoctorReport& report) {
    std::error_code failure;
    const fs::file_status status =
        fs::symlink_status(surroundings.root.locate(folder.path), failure);
    const auto say = [&](Bilingual text, const auto&... values) {
        return surroundings.say(text, values...);
    };
    if (status.type() == fs::file_type::not_found && folder.isMadeLater) {
        report.ok(say(doctorTexts::folderLater, folder.path));
    } else if (status.type() == fs::file_type::not_found) {
        report.wrong(say(doctorTexts::folderMissing, folder.path),
                     say(doctorTexts::folderInstallAdvice));
    } else if (failure) {
        report.wrong(say(doctorTexts::folderForbidden, folder.path), failure.message());
    } else if (status.type() != fs::file_type::directory) {
        report.wrong(say(doctorTexts::folderNotOne, folder.path),
                     say(doctorTexts::folderRemoveAdvice, folder.path));
    } else if (!isModeGood(modeOf(status), folder.mode)) {
        report.wrong(
            say(doctorTexts::folderMode, folder.path, octal(modeOf(status)), octal(folder.mode)),
            say(doctorTexts::folderModeAdvice, octal(folder.mode), folder.path));
    } else {
        report.ok(say(doctorTexts::folderGood, folder.path, octal(modeOf(status))));
    }
}

/// For root the system is asked; others judge by what the folder's owner, the agent, may do.
bool isWritableForAgent(const std::string& location, const fs::file_status& status) {
    if (status.type() != fs::file_type::directory) return false;
    if (::geteuid() == 0) return ::access(location.c_str(), W_OK | X_OK) == 0;
    return (modeOf(status) & writableByOwner) != 0;
}

void diagnoseLog(const Surroundings& surroundings, DoctorReport& report) {
    const std::string location = surroundings.root.locate(paths::logDirectory);
    std::error_code failure;
    const fs::file_status status = fs::symlink_status(location, failure);
    if (status.type() == fs::file_type::not_found) {
        report.wrong(surroundings.say(doctorTexts::logMissing, paths::logDirectory),
                     surroundings.say(doctorTexts::logAdvice, paths::logDirectory));
    } else if (failure || !isWritableForAgent(location, status)) {
        report.wrong(surroundings.say(doctorTexts::logNotWritable, paths::logDirectory),
                     surroundings.say(doctorTexts::logAdvice, paths::logDirectory));
    } else {
        report.ok(surroundings.say(doctorTexts::logGood, paths::logDirectory));
    }
}

void diagnoseSession(const Surroundings& surroundings, DoctorReport& report) {
    if (!surroundings.home) return;
    const std::string location = CustomerSessionFile(surroundings).location();
    std::error_code failure;
    const fs::file_status status = fs::status(location, failure);
    if (status.type() != fs::file_type::regular || (modeOf(status) & readableByOthers) == 0) return;
    report.wrong(surroundings.say(doctorTexts::sessionMode, location),
                 surroundings.say(doctorTexts::sessionAdvice, location));
}

}  // namespace

std::optional<ViewerSettings> diagnoseSettings(const Surroundings& surroundings,
                                               DoctorReport& report) {
    const Reading<ViewerSettings> settings =
        readSettings(surroundings.root, surroundings.environmentSettingsPath);
    if (!settings.isGood()) {
        report.wrong(surroundings.say(doctorTexts::settingsBad), explain(settings, surroundings));
        return std::nullopt;
    }
    if (settings.record.hasViewerToken()) {
        report.ok(surroundings.say(doctorTexts::settingsGood, settings.path,
                                   settings.record.serverBaseUrl));
    } else {
        report.wrong(surroundings.say(doctorTexts::settingsTokenMissing, settings.path),
                     surroundings.say(doctorTexts::settingsTokenAdvice));
    }
    return settings.record;
}

std::optional<ViewerState> diagnoseState(const Surroundings& surroundings,
                                         const std::optional<ViewerSettings>& settings,
                                         DoctorReport& report) {
    const Reading<ViewerState> reading = readState(surroundings.root);
    if (!reading.isGood()) {
        report.wrong(surroundings.say(doctorTexts::registrationBad),
                     explain(reading, surroundings));
        return std::nullopt;
    }
    const ViewerState& state = reading.record;
    if (!state.deviceUid || !state.lastHeartbeatAt) {
        report.wrong(surroundings.say(doctorTexts::registrationBad),
                     explain(Reading<ViewerState>{}, surroundings));
        return state;
    }
    const WallTime now = surroundings.clock.now();
    const std::string ago = timeAgo(*state.lastHeartbeatAt, now, surroundings.language);
    // Longer intervals than a day only help to hide that the agent does not run.
    const std::int64_t interval =
        std::min<std::int64_t>(settings ? settings->heartbeatIntervalSeconds : 300, 86400);
    if (now - *state.lastHeartbeatAt > std::chrono::seconds(3 * interval)) {
        report.wrong(surroundings.say(doctorTexts::heartbeatOld, ago),
                     surroundings.say(doctorTexts::heartbeatAdvice));
    } else {
        report.ok(surroundings.say(doctorTexts::registered, state.supportId.value_or("-"), ago));
    }
    return state;
}

void diagnoseFolders(const Surroundings& surroundings, DoctorReport& report) {
    for (const SharedFolder& folder : sharedFolders)
        diagnoseFolder(folder, surroundings, report);
    diagnoseLog(surroundings, report);
    diagnoseSession(surroundings, report);
}

}  // namespace orv::companion
