#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "OrvViewerShared/Tickets.h"
#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Fills in a ticket from the command line, from what is known of the person, and, at a terminal,
/// by asking.
class TicketForm {
public:
    /// The next line that the person typed; nothing at the end of the input.
    using Answers = std::function<std::optional<std::string>()>;

    struct Parts {
        const Surroundings& surroundings;
        const Arguments& arguments;
        std::string knownName;   // may be empty
        std::string knownEmail;  // may be empty
        Answers answers;         // none: nobody can be asked
    };

    explicit TicketForm(Parts parts) : parts(std::move(parts)) {}

    /// Throws UsageError when something is missing or cannot be right, CommandFailure or FileError
    /// for an attachment.
    AgentTicketDraft fill() const;

private:
    std::string required(const char* option, Bilingual question, const std::string& known) const;
    std::string description() const;
    std::string askedDescription() const;
    std::string phone() const;
    std::string ask(Bilingual question, const std::string& known) const;
    std::string checkedText(std::string text) const;
    std::string checkedEmail(const std::string& text) const;

    Parts parts;
};

}  // namespace orv::companion
