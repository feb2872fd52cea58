#include "WsparoCompanion/UpdateTexts.h"

#include <array>
#include <string_view>

#include <fmt/format.h>

#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TimeTexts.h"

namespace orv::companion {

namespace {

struct Phase {
    std::string_view name;
    Bilingual text;
    bool isFinal;
};

constexpr std::array<Phase, 7> phases{{
    {"queued", texts::phaseQueued, false},
    {"checking", texts::phaseChecking, false},
    {"downloading", texts::phaseDownloading, false},
    {"installing", texts::phaseInstalling, false},
    {"no_update", texts::phaseNoUpdate, true},
    {"installed", texts::phaseInstalled, true},
    {"failed", texts::phaseFailed, true},
}};

const Phase* phaseNamed(std::string_view name) {
    for (const Phase& phase : phases) {
        if (phase.name == name) return &phase;
    }
    return nullptr;
}

}  // namespace

bool isFinal(const ViewerUpdateStatus& status) {
    const Phase* phase = phaseNamed(status.phase);
    return phase != nullptr && phase->isFinal;
}

std::string phaseText(const std::string& phase, const Surroundings& surroundings) {
    const Phase* known = phaseNamed(phase);
    return known == nullptr ? printableLine(phase) : surroundings.say(known->text);
}

std::string progressText(const ViewerUpdateStatus& status, const Surroundings& surroundings) {
    return fmt::format("{}: {}", phaseText(status.phase, surroundings),
                       printableLine(status.message));
}

std::string updateLine(const Reading<ViewerUpdateStatus>& update,
                       const Surroundings& surroundings) {
    if (update.condition == FileCondition::missing) return surroundings.say(texts::updateNone);
    if (!update.isGood()) return surroundings.say(texts::updateBroken, update.path);
    return surroundings.say(
        texts::withTime, progressText(update.record, surroundings),
        timeAgo(update.record.updatedAt, surroundings.clock.now(), surroundings.language));
}

}  // namespace orv::companion
