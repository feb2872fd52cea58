#include "WsparoCompanion/TicketCommands.h"

#include <chrono>
#include <exception>
#include <string>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/TerminalInput.h"
#include "OrvPlatform/Text.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/CustomerSession.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/HelpdeskAccess.h"
#include "WsparoCompanion/Interruptible.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TicketForm.h"
#include "WsparoCompanion/TicketNews.h"

namespace orv::companion {

namespace {

// Attachments of 25 MB each over a slow line.
constexpr std::chrono::minutes ticketTotalTimeout{15};
constexpr int usualInterval = 30;  // seconds
constexpr int longestInterval = 86400;

/// The session for this server; nothing when there is none that can be used.
std::optional<CustomerSession> sessionFor(const Surroundings& surroundings,
                                          const ViewerSettings& settings) {
    if (!surroundings.home) return std::nullopt;
    Reading<CustomerSession> session = CustomerSessionFile(surroundings).read();
    const bool isUsable =
        session.isGood() && session.record.serverBaseUrl == settings.serverBaseUrl;
    if (!isUsable) return std::nullopt;
    return std::move(session.record);
}

CustomerSession requiredSession(const Surroundings& surroundings, const ViewerSettings& settings) {
    const Reading<CustomerSession> session = CustomerSessionFile(surroundings).read();
    if (session.condition == FileCondition::broken ||
        session.condition == FileCondition::forbidden) {
        throw surroundings.failure(exitCode::loginNeeded, texts::sessionUnreadable, session.path);
    }
    // The token of one server is none of another's business.
    if (!session.isGood() || session.record.serverBaseUrl != settings.serverBaseUrl) {
        throw surroundings.failure(exitCode::loginNeeded, texts::notLoggedIn);
    }
    return session.record;
}

TicketForm::Answers answersFromTerminal(const Arguments& arguments) {
    const bool readsDescription = arguments.value("--description") == "-";
    if (readsDescription || !isTerminal(STDIN_FILENO)) return nullptr;
    return [] { return readLine(STDIN_FILENO); };
}

AgentTicketDraft draftFrom(const Surroundings& surroundings, const Arguments& arguments,
                           const ViewerSettings& settings) {
    const std::optional<CustomerSession> session = sessionFor(surroundings, settings);
    const TicketForm form(
        {surroundings, arguments,
         session ? session->session.customer.fullName : surroundings.user.fullName,
         session ? session->session.customer.email : "", answersFromTerminal(arguments)});
    return form.fill();
}

/// "wsparo ticket new" at work. It must outlive its task.
class TicketSending {
public:
    TicketSending(const Surroundings& surroundings, HelpdeskAccess& access)
        : surroundings(surroundings), access(access) {}

    Task<int> run(AgentTicketDraft draft, ViewerState state) {
        AgentTicketResponse answer;
        try {
            answer = co_await access.customers().createTicket(std::move(draft), std::move(state));
        } catch (const std::exception& error) {
            if (isCancellation(error)) throw;
            throw helpdeskFailure(error, Caller::device, texts::actionSendTicket, surroundings);
        }
        const std::string number = answer.ticketNumber.value_or(answer.publicId);
        surroundings.out.line(surroundings.say(texts::ticketCreated, printableLine(number)));
        if (answer.ticketUrl) surroundings.out.line(printableLine(*answer.ticketUrl));
        co_return exitCode::success;
    }

private:
    const Surroundings& surroundings;
    HelpdeskAccess& access;
};

}  // namespace

int openTicket(const Surroundings& surroundings, const Arguments& arguments) {
    const ViewerSettings settings = requiredSettings(surroundings);
    // A state that cannot be read costs the device's name on the ticket, not the ticket.
    const ViewerState state = readState(surroundings.root).record;
    AgentTicketDraft draft = draftFrom(surroundings, arguments, settings);
    Interruptible thread(exitCode::interrupted);
    HelpdeskAccess access(thread.executor(), surroundings.clock, settings, state,
                          ticketTotalTimeout);
    TicketSending sending(surroundings, access);
    return thread.run(sending.run(std::move(draft), state));
}

int showTickets(const Surroundings& surroundings, const Arguments& arguments) {
    const int interval = arguments.number("--interval", longestInterval, surroundings.language)
                             .value_or(usualInterval);
    const bool isFollowing = arguments.has("--follow");
    const ViewerSettings settings = requiredSettings(surroundings);
    CustomerSession session = requiredSession(surroundings, settings);
    if (isFollowing && surroundings.err.isTerminal()) {
        surroundings.err.line(surroundings.say(texts::ticketsWatching));
    }
    Interruptible thread(isFollowing ? exitCode::success : exitCode::interrupted);
    HelpdeskAccess access(thread.executor(), surroundings.clock, settings, {}, usualTotalTimeout);
    TicketNews news({surroundings, access.customers(), CustomerSessionFile(surroundings),
                     std::move(session), arguments.has("--json")});
    if (arguments.has("--all")) news.beginAnew();
    return thread.run(isFollowing ? news.follow(std::chrono::seconds(interval)) : news.showOnce());
}

}  // namespace orv::companion
