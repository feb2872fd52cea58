#include "WsparoCompanion/StatusCommand.h"

#include <utility>

#include "OrvPlatform/Iso8601.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Fields.h"
#include "WsparoCompanion/IssueTexts.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TimeTexts.h"
#include "WsparoCompanion/UpdateTexts.h"

namespace orv::companion {

namespace {

Json orNull(const std::optional<std::string>& text) {
    return text ? Json(*text) : Json();
}

Json orNull(const std::optional<WallTime>& time) {
    return time ? Json(iso8601(*time)) : Json();
}

const char* conditionName(FileCondition condition) {
    switch (condition) {
        case FileCondition::good: return "good";
        case FileCondition::missing: return "missing";
        case FileCondition::forbidden: return "forbidden";
        case FileCondition::broken: break;
    }
    return "broken";
}

std::string serverText(const Reading<ViewerSettings>& settings, const Surroundings& surroundings) {
    switch (settings.condition) {
        case FileCondition::good: return printableLine(settings.record.serverBaseUrl);
        case FileCondition::missing: return surroundings.say(texts::missingSettingsShort);
        case FileCondition::forbidden: return surroundings.say(texts::unreadableSettingsShort);
        case FileCondition::broken: break;
    }
    return surroundings.say(texts::brokenSettingsShort);
}

std::string connectionText(const ViewerState& state, const Surroundings& surroundings) {
    const Output& out = surroundings.out;
    if (!state.connectionIssue) return out.in(Colour::green, surroundings.say(texts::noProblem));
    std::string text = issueText(*state.connectionIssue, surroundings.language);
    if (surroundings.language == Language::polish && state.connectionMessage) {
        text = printableLine(*state.connectionMessage);
    }
    text = out.in(Colour::red, text);
    if (!state.lastConnectionErrorAt) return text;
    return surroundings.say(
        texts::withTime, text,
        timeAgo(*state.lastConnectionErrorAt, surroundings.clock.now(), surroundings.language));
}

std::string orUnknown(const std::optional<std::string>& text, const Surroundings& surroundings) {
    return text ? printableLine(*text) : surroundings.say(texts::unknown);
}

std::string orNever(const std::optional<WallTime>& time, const Surroundings& surroundings) {
    if (!time) return surroundings.say(texts::never);
    return timeAgo(*time, surroundings.clock.now(), surroundings.language);
}

}  // namespace

Json statusJson(const StatusFacts& facts) {
    const ViewerState& state = facts.state.record;
    Json json{{"registered", facts.isRegistered()},
              {"deviceUid", orNull(state.deviceUid)},
              {"supportId", orNull(state.supportId)},
              {"hostname", orNull(state.hostname)},
              {"lastInventoryAt", orNull(state.lastInventoryAt)},
              {"lastHeartbeatAt", orNull(state.lastHeartbeatAt)},
              {"connectionMessage", orNull(state.connectionMessage)},
              {"lastConnectionErrorAt", orNull(state.lastConnectionErrorAt)},
              {"connectionIssue", nullptr},
              {"serverBaseUrl", nullptr},
              {"update", nullptr},
              {"files",
               {{"state", conditionName(facts.state.condition)},
                {"settings", conditionName(facts.settings.condition)},
                {"update", conditionName(facts.update.condition)}}}};
    if (state.connectionIssue) json["connectionIssue"] = rawValue(*state.connectionIssue);
    if (facts.settings.isGood()) json["serverBaseUrl"] = facts.settings.record.serverBaseUrl;
    if (facts.update.isGood()) json["update"] = facts.update.record;
    return json;
}

std::string statusText(const StatusFacts& facts, const Surroundings& surroundings) {
    const ViewerState& state = facts.state.record;
    const Output& out = surroundings.out;
    const auto say = [&](Bilingual text) { return surroundings.say(text); };
    Fields fields;
    fields.add(say(texts::labelRegistration), facts.isRegistered()
                                                  ? out.in(Colour::green, say(texts::registered))
                                                  : out.in(Colour::red, say(texts::notRegistered)));
    fields.add(say(texts::labelSupportId), orUnknown(state.supportId, surroundings));
    fields.add(say(texts::labelHostname), orUnknown(state.hostname, surroundings));
    fields.add(say(texts::labelServer), serverText(facts.settings, surroundings));
    fields.add(say(texts::labelInventory), orNever(state.lastInventoryAt, surroundings));
    fields.add(say(texts::labelHeartbeat), orNever(state.lastHeartbeatAt, surroundings));
    fields.add(say(texts::labelConnection), connectionText(state, surroundings));
    fields.add(say(texts::labelUpdate), updateLine(facts.update, surroundings));
    return fields.text();
}

int statusExitCode(const StatusFacts& facts) {
    switch (facts.state.condition) {
        case FileCondition::forbidden: return exitCode::noPermission;
        case FileCondition::broken: return exitCode::failure;
        case FileCondition::missing: return exitCode::notSetUp;
        case FileCondition::good: break;
    }
    if (!facts.isRegistered()) return exitCode::notSetUp;
    return facts.state.record.connectionIssue ? exitCode::failure : exitCode::success;
}

int showStatus(const Surroundings& surroundings, const Arguments& arguments) {
    const StatusFacts facts{
        readState(surroundings.root),
        readSettings(surroundings.root, surroundings.environmentSettingsPath),
        readUpdateStatus(surroundings),
    };
    if (arguments.has("--json")) {
        surroundings.out.write(prettyJson(statusJson(facts)));
    } else if (facts.state.isGood()) {
        surroundings.out.line(statusText(facts, surroundings));
    } else {
        throw CommandFailure(statusExitCode(facts), explain(facts.state, surroundings));
    }
    return statusExitCode(facts);
}

}  // namespace orv::companion
