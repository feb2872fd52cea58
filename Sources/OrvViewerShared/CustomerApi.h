#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/Tickets.h"
#include "OrvViewerShared/ViewerState.h"

namespace orv {

/// What the person at the Mac asks of the helpdesk: a ticket, and the answers to it. The daemon
/// itself never does. The errors are OrvDeskApiClient's.
class CustomerApi {
public:
    CustomerApi(OrvDeskApiClient& client, const Clock& clock) : client(client), clock(clock) {}

    /// Opens a ticket in the name of the device, as far as that is known. Every call is a request
    /// of its own to the server, also with the same draft.
    Task<AgentTicketResponse> createTicket(AgentTicketDraft draft, ViewerState state);

    Task<CustomerSessionResponse> loginCustomer(std::string email, std::string password);

    /// Consultants' messages that are newer than the given one, at most so many.
    Task<CustomerTicketNotificationPage> customerTicketNotifications(std::string sessionToken,
                                                                     std::int64_t afterMessageId,
                                                                     std::int64_t limit);

private:
    OrvDeskApiClient& client;
    const Clock& clock;
};

}  // namespace orv
