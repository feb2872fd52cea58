#include "OrvViewerShared/Update/UpdateLoops.h"

#include <chrono>
#include <optional>
#include <utility>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

// The start-up exchange and the first polls come before the first automatic check.
constexpr std::chrono::seconds firstAutomaticStepAfter{120};
constexpr std::chrono::seconds automaticStepPeriod{3600};
constexpr std::chrono::seconds requestPollPeriod{2};

}  // namespace

Task<void> UpdateLoops::autoUpdateLoop() {
    co_await parts.clock.sleepFor(firstAutomaticStepAfter);
    for (;;) {
        co_await runDailyStep();
        co_await parts.clock.sleepFor(automaticStepPeriod);
    }
}

Task<void> UpdateLoops::manualUpdateRequestLoop() {
    for (;;) {
        co_await runManualStep();
        co_await parts.clock.sleepFor(requestPollPeriod);
    }
}

Task<void> UpdateLoops::runDailyStep() {
    if (!parts.coordinator.claimDailyAutomaticCheck(parts.clock.now())) co_return;
    try {
        const Json result = co_await parts.check.checkForClientUpdate("auto_daily", std::nullopt);
        if (result.value("update_started", false)) {
            parts.logger.info("Wsparo Brenvox macOS daily auto-update scheduled. result=" +
                              compactJson(result));
        }
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        parts.logger.error(error, "Daily automatic macOS update check failed");
    }
}

Task<void> UpdateLoops::runManualStep() {
    std::optional<ViewerUpdateRequest> request = parts.coordinator.consumeManualRequest();
    if (!request) co_return;
    parts.logger.info("Manual macOS update check requested from menu bar.");
    try {
        co_await parts.check.checkForClientUpdate("manual", std::move(request->currentVersion));
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        reportManualFailure(error);
    }
}

void UpdateLoops::reportManualFailure(const std::exception& error) const {
    parts.recordConnectionError(error);
    parts.coordinator.writeStatus(updateStatus("failed",
                                               viewerErrorMessage(error, "sprawdzić aktualizację"),
                                               std::nullopt, parts.clock.now()));
    parts.logger.error(error, "Manual macOS update check failed");
}

}  // namespace orv
