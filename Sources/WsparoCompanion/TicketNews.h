#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "OrvViewerShared/CustomerApi.h"
#include "WsparoCompanion/CustomerSession.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Consultants' answers to the customer's tickets, from where the last look ended: the cursor in
/// the session's file moves on with every page that was shown. It must outlive its tasks.
class TicketNews {
public:
    struct Parts {
        const Surroundings& surroundings;
        CustomerApi& api;
        CustomerSessionFile file;
        CustomerSession session;
        bool isJson = false;
    };

    explicit TicketNews(Parts given) : parts(std::move(given)), next(parts.session.cursor) {}

    /// From the first answer of all. The cursor in the file does not go back.
    void beginAnew() { next = 0; }

    /// Both return an exit status; they throw CommandFailure.
    Task<int> showOnce();

    /// Until cancelled. A server that cannot be reached is told once and asked again; a session
    /// that has ended is the end.
    Task<int> follow(std::chrono::seconds interval);

private:
    Task<bool> showWaiting();
    Task<CustomerTicketNotificationPage> nextPage();
    void show(const CustomerTicketNotification& notification) const;
    void moveTo(std::int64_t cursor);

    Parts parts;
    std::int64_t next;
};

}  // namespace orv::companion
