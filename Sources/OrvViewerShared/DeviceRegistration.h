#pragma once

#include <exception>
#include <optional>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/AgentIdentity.h"
#include "OrvViewerShared/AuditCollecting.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerState.h"

namespace orv {

/// The device's standing with the helpdesk: registers it with its inventory, proves that it is
/// alive, and knows who it is. Holds the service's copy of the state; saving it keeps the device
/// token that is in the file, which belongs to DeviceTokenStore.
class DeviceRegistration {
public:
    struct Parts {
        AuditCollecting& collector;
        OrvDeskApiClient& apiClient;
        const ViewerStateFile& stateFile;
        const ViewerLogger& logger;
        Clock& clock;
    };

    explicit DeviceRegistration(Parts parts);

    /// Nothing while no device identifier is known.
    std::optional<AgentIdentity> identity() const;

    /// Both identifiers that the server gives are known.
    bool isRegistered() const { return state.deviceUid && state.supportId; }
    const std::optional<std::string>& deviceUid() const { return state.deviceUid; }

    /// The inventory doubles as registration. The reason goes into the log line. Failures are
    /// logged and recorded, never thrown; only cancellation is.
    Task<AgentOperationOutcome> sendInventory(std::string reason);
    Task<AgentOperationOutcome> sendHeartbeat(std::string reason);

    /// Keeps the classified problem in the state, for the companion application to show.
    AgentOperationOutcome recordConnectionError(const std::exception& error);

private:
    void applyRegistration(const DeviceRegistrationResponse& response,
                           const std::optional<std::string>& collectedUid,
                           const std::optional<std::string>& collectedHostname);
    void saveState() const;
    std::string identifiersForLog() const;

    Parts parts;
    ViewerState state;
};

}  // namespace orv
