#include "OrvViewerShared/Update/ViewerUpdateStatus.h"

#include <array>
#include <chrono>
#include <string_view>

#include <fmt/format.h>

#include "OrvPlatform/Iso8601.h"

namespace orv {

namespace {

using namespace std::chrono_literals;

struct ProgressPhase {
    std::string_view word;
    std::chrono::seconds allowance;
    bool isRunning;
};

constexpr std::array<ProgressPhase, 4> progressPhases{{
    {"queued", 180s, false},
    {"checking", 300s, true},
    {"downloading", 1200s, true},
    {"installing", 1200s, true},
}};

const ProgressPhase* progressPhase(const std::string& word) {
    for (const ProgressPhase& phase : progressPhases) {
        if (phase.word == word) return &phase;
    }
    return nullptr;
}

WallTime requiredTime(const Json& object, const char* key) {
    const std::optional<WallTime> time = parseIso8601(requiredText(object, key));
    if (!time) throw DecodingError(fmt::format("The value of \"{}\" is not a date.", key));
    return *time;
}

}  // namespace

void to_json(Json& out, const ViewerUpdateStatus& status) {
    out = Json{{"phase", status.phase},
               {"message", status.message},
               {"currentVersion", status.currentVersion},
               {"updatedAt", iso8601(status.updatedAt)}};
    if (status.availableVersion) out["availableVersion"] = *status.availableVersion;
    if (status.logPath) out["logPath"] = *status.logPath;
}

void from_json(const Json& in, ViewerUpdateStatus& status) {
    status.phase = requiredText(in, "phase");
    status.message = requiredText(in, "message");
    status.currentVersion = requiredText(in, "currentVersion");
    status.availableVersion = optionalText(in, "availableVersion");
    status.updatedAt = requiredTime(in, "updatedAt");
    status.logPath = optionalText(in, "logPath");
}

void to_json(Json& out, const ViewerUpdateRequest& request) {
    out = Json{{"id", request.id},
               {"requestedAt", iso8601(request.requestedAt)},
               {"currentVersion", request.currentVersion}};
}

void from_json(const Json& in, ViewerUpdateRequest& request) {
    request.id = requiredText(in, "id");
    request.requestedAt = requiredTime(in, "requestedAt");
    request.currentVersion = requiredText(in, "currentVersion");
}

bool isStale(const ViewerUpdateStatus& status, WallTime now) {
    const ProgressPhase* phase = progressPhase(status.phase);
    return phase != nullptr && now - status.updatedAt > phase->allowance;
}

bool isRunning(const ViewerUpdateStatus& status, WallTime now) {
    const ProgressPhase* phase = progressPhase(status.phase);
    return phase != nullptr && phase->isRunning && !isStale(status, now);
}

}  // namespace orv
