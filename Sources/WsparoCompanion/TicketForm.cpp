#include "WsparoCompanion/TicketForm.h"

#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/TerminalInput.h"
#include "OrvPlatform/Text.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TicketDraft.h"

namespace orv::companion {

namespace {

constexpr std::size_t descriptionLimitBytes = std::size_t{1} << 20;

}  // namespace

AgentTicketDraft TicketForm::fill() const {
    AgentTicketDraft draft;
    draft.subject = required("--subject", texts::askSubject, "");
    draft.descriptionHtml = htmlOf(description());
    draft.customerName = required("--name", texts::askName, parts.knownName);
    draft.customerEmail =
        checkedEmail(required("--email", texts::askCustomerEmail, parts.knownEmail));
    draft.phone = phone();
    for (const std::string& address : parts.arguments.values("--cc"))
        draft.ccEmails.push_back(checkedEmail(address));
    draft.priority = checkedText(parts.arguments.value("--priority").value_or("normal"));
    draft.ticketType = checkedText(parts.arguments.value("--type").value_or("incident"));
    for (const std::string& path : parts.arguments.values("--attach"))
        draft.attachments.push_back(attachmentFrom(path, parts.surroundings));
    return draft;
}

std::string TicketForm::required(const char* option, Bilingual question,
                                 const std::string& known) const {
    std::string text = parts.arguments.value(option).value_or("");
    if (text.empty()) text = parts.answers ? ask(question, known) : known;
    text = trimmed(text);
    if (text.empty()) throw UsageError(parts.surroundings.say(texts::missingOption, option));
    return checkedText(std::move(text));
}

std::string TicketForm::description() const {
    std::string text = parts.arguments.value("--description").value_or("");
    if (text == "-") {
        text = readToEnd(STDIN_FILENO, descriptionLimitBytes);
    } else if (text.empty() && parts.answers) {
        text = askedDescription();
    }
    text = trimmed(text);
    if (text.empty()) {
        throw UsageError(parts.surroundings.say(texts::missingOption, "--description"));
    }
    return checkedText(std::move(text));
}

std::string TicketForm::askedDescription() const {
    parts.surroundings.err.line(parts.surroundings.say(texts::askDescription));
    std::string text;
    for (std::optional<std::string> line = parts.answers(); line && *line != ".";
         line = parts.answers()) {
        text += *line + "\n";
    }
    return text;
}

/// Asked for only where the person is asked anyway.
std::string TicketForm::phone() const {
    if (const auto given = parts.arguments.value("--phone")) return checkedText(*given);
    const bool isAsking = parts.answers && !parts.arguments.has("--subject");
    return isAsking ? checkedText(trimmed(ask(texts::askPhone, ""))) : "";
}

std::string TicketForm::ask(Bilingual question, const std::string& known) const {
    std::string prompt = parts.surroundings.say(question);
    if (!known.empty()) prompt += fmt::format(" [{}]", printableLine(known));
    if (!prompt.ends_with(": ")) prompt += ": ";
    parts.surroundings.err.write(prompt);
    const std::string answer = trimmed(parts.answers().value_or(""));
    return answer.empty() ? known : answer;
}

std::string TicketForm::checkedText(std::string text) const {
    if (!isValidUtf8(text)) throw UsageError(parts.surroundings.say(texts::invalidUtf8));
    return text;
}

std::string TicketForm::checkedEmail(const std::string& text) const {
    std::string address = checkedText(trimmed(text));
    if (!looksLikeEmail(address)) {
        throw UsageError(parts.surroundings.say(texts::notAnEmail, printableLine(address)));
    }
    return address;
}

}  // namespace orv::companion
