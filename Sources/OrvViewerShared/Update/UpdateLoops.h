#pragma once

#include <exception>
#include <functional>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Update/UpdateCheck.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "OrvViewerShared/ViewerLogger.h"

namespace orv {

/// The two ways in which updates begin without a consultant. Nothing but cancellation ends a loop.
class UpdateLoops {
public:
    struct Parts {
        const ViewerUpdateCoordinator& coordinator;
        UpdateCheck& check;
        Clock& clock;
        const ViewerLogger& logger;
        /// Keeps the classified problem where the companion application shows it.
        std::function<void(const std::exception& error)> recordConnectionError;
    };

    explicit UpdateLoops(Parts parts) : parts(std::move(parts)) {}

    /// The daily step, first after two minutes and then every hour.
    Task<void> autoUpdateLoop();

    /// The manual step, at once and then every 2 s.
    Task<void> manualUpdateRequestLoop();

    /// Checks when the day's check is due.
    Task<void> runDailyStep();

    /// Checks when the menu-bar application has asked for it.
    Task<void> runManualStep();

private:
    void reportManualFailure(const std::exception& error) const;

    Parts parts;
};

}  // namespace orv
