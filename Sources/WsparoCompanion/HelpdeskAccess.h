#pragma once

#include <chrono>

#include "OrvPlatform/HttpSession.h"
#include "OrvPlatform/TlsTrust.h"
#include "OrvViewerShared/CustomerApi.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "OrvViewerShared/ViewerState.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// The helpdesk as the companion reaches it. The state is a copy: a device token that the server
/// does not accept is forgotten here alone, for the state file is the agent's.
class HelpdeskAccess {
public:
    HelpdeskAccess(asio::any_io_executor executor, Clock& clock, const ViewerSettings& settings,
                   const ViewerState& state, std::chrono::milliseconds totalTimeout);

    const TlsTrust& trust() const { return tlsTrust; }
    HttpClient& http() { return session; }
    OrvDeskApiClient& api() { return client; }
    CustomerApi& customers() { return customerApi; }

private:
    ViewerState state;
    TlsTrust tlsTrust;
    HttpSession session;
    DeviceTokenStore tokens;
    OrvDeskApiClient client;
    CustomerApi customerApi;
};

inline constexpr std::chrono::seconds usualTotalTimeout{20};

/// In whose name a call goes out, and so what its refusal means.
enum class Caller { device, customer };

/// What the person is told when a call failed, and the exit status for it. The action is the middle
/// of "Nie udało się ..., ponieważ ...".
CommandFailure helpdeskFailure(const std::exception& error, Caller caller, Bilingual action,
                               const Surroundings& surroundings);

}  // namespace orv::companion
