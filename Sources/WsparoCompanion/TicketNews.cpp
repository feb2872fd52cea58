#include "WsparoCompanion/TicketNews.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Iso8601.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/HelpdeskAccess.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TimeTexts.h"

namespace orv::companion {

namespace {

constexpr std::int64_t pageSize = 50;

std::string timeText(const std::string& createdAt) {
    const std::optional<WallTime> time = parseIso8601(createdAt);
    return time ? localTime(*time) : printableLine(createdAt);
}

Json jsonOf(const CustomerTicketNotification& notification) {
    return {{"messageId", notification.messageId},
            {"ticketPublicId", notification.ticketPublicId},
            {"ticketNumber", notification.ticketNumber},
            {"subject", notification.subject},
            {"messageText", notification.messageText},
            {"createdAt", notification.createdAt}};
}

}  // namespace

Task<int> TicketNews::showOnce() {
    const bool wereSome = co_await showWaiting();
    if (!wereSome && !parts.isJson) {
        parts.surroundings.out.line(parts.surroundings.say(texts::noNews));
    }
    co_return exitCode::success;
}

Task<int> TicketNews::follow(std::chrono::seconds interval) {
    bool isCutOff = false;
    for (;;) {
        try {
            co_await showWaiting();
            isCutOff = false;
        } catch (const CommandFailure& failure) {
            if (failure.status() != exitCode::unreachable) throw;
            if (!isCutOff) {
                parts.surroundings.err.line(fmt::format("wsparo: {}", failure.what()));
            }
            isCutOff = true;
        }
        co_await parts.surroundings.clock.sleepFor(interval);
    }
}

/// Whether there were any.
Task<bool> TicketNews::showWaiting() {
    bool wereSome = false;
    for (;;) {
        const std::int64_t askedFrom = next;
        const CustomerTicketNotificationPage page = co_await nextPage();
        for (const CustomerTicketNotification& notification : page.items)
            show(notification);
        wereSome = wereSome || !page.items.empty();
        moveTo(page.cursor);
        // A server that promises more and does not move on would be asked for ever.
        if (!page.hasMore || next <= askedFrom) co_return wereSome;
    }
}

Task<CustomerTicketNotificationPage> TicketNews::nextPage() {
    const Surroundings& surroundings = parts.surroundings;
    try {
        co_return co_await parts.api.customerTicketNotifications(parts.session.session.accessToken,
                                                                 next, pageSize);
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        CommandFailure failure =
            helpdeskFailure(error, Caller::customer, texts::actionFetchTickets, surroundings);
        if (failure.status() == exitCode::loginNeeded) {
            throw surroundings.failure(exitCode::loginNeeded, texts::sessionExpired);
        }
        throw CommandFailure(std::move(failure));
    }
}

void TicketNews::show(const CustomerTicketNotification& notification) const {
    Output& out = parts.surroundings.out;
    if (parts.isJson) {
        out.line(compactJson(jsonOf(notification)));
        return;
    }
    constexpr const char* indentation = "    ";
    out.line(fmt::format("{}  {}  {}\n{}{}", timeText(notification.createdAt),
                         out.in(Colour::bold, printableLine(notification.ticketNumber)),
                         printableLine(notification.subject), indentation,
                         printableBlock(notification.messageText, indentation)));
}

void TicketNews::moveTo(std::int64_t cursor) {
    next = std::max(next, cursor);
    if (next <= parts.session.cursor) return;
    parts.session.cursor = next;
    // Whoever logged out meanwhile, or in as somebody else, is not to find this session again.
    const Reading<CustomerSession> stored = parts.file.read();
    const bool isStillOurs = stored.isGood() && stored.record.session == parts.session.session;
    if (isStillOurs) parts.file.write(parts.session);
}

}  // namespace orv::companion
