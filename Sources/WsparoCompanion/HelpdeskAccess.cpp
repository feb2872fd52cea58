#include "WsparoCompanion/HelpdeskAccess.h"

#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/ViewerError.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/IssueTexts.h"
#include "WsparoCompanion/Printable.h"

namespace orv::companion {

namespace {

HttpSessionOptions optionsWith(std::chrono::milliseconds totalTimeout) {
    HttpSessionOptions options;
    options.userAgent = "WsparoCompanion/" + MacViewerBuildInfo::version;
    options.totalTimeout = totalTimeout;
    return options;
}

std::string httpReasonInEnglish(const ViewerError& error) {
    const int status = error.status();
    if (status == 401) return "the login or session is not valid; log in again.";
    if (status == 403) return "the account lacks the permission.";
    if (status == 404) return "it does not exist on the server, or not any more.";
    if (status == 429) return "there were too many attempts; wait a moment and try again.";
    if (status >= 500) return "the server has a problem; try again in a few minutes.";
    if (const auto detail = serverErrorDetail(error.body())) return *detail;
    return fmt::format("the server answered with HTTP {}.", status);
}

std::string reasonInEnglish(const std::exception& error) {
    const auto* viewerError = dynamic_cast<const ViewerError*>(&error);
    if (viewerError == nullptr) return error.what();
    switch (viewerError->kind()) {
        case ViewerError::Kind::http: return httpReasonInEnglish(*viewerError);
        case ViewerError::Kind::configuration: return "the settings are incomplete.";
        case ViewerError::Kind::invalidResponse: return "the server's answer is not valid.";
        case ViewerError::Kind::temporarilyUnavailable:
            return "there is no connection to the server; check the network and try again.";
        case ViewerError::Kind::unsupported: break;
    }
    return viewerError->message();
}

std::string sentence(const std::exception& error, Bilingual action, Language language) {
    if (language == Language::polish) return viewerErrorMessage(error, action.polish);
    return fmt::format("Could not {}: {}", action.english, reasonInEnglish(error));
}

int statusOf(const std::exception& error, Caller caller) {
    if (dynamic_cast<const UrlError*>(&error) != nullptr) return exitCode::unreachable;
    const auto* viewerError = dynamic_cast<const ViewerError*>(&error);
    if (viewerError == nullptr) return exitCode::failure;
    if (viewerError->kind() == ViewerError::Kind::temporarilyUnavailable) {
        return exitCode::unreachable;
    }
    const bool isLoginRefused = viewerError->kind() == ViewerError::Kind::http &&
                                viewerError->status() == 401 && caller == Caller::customer;
    return isLoginRefused ? exitCode::loginNeeded : exitCode::failure;
}

}  // namespace

HelpdeskAccess::HelpdeskAccess(asio::any_io_executor executor, Clock& clock,
                               const ViewerSettings& settings, const ViewerState& stateOfAgent,
                               std::chrono::milliseconds totalTimeout)
    : state(stateOfAgent),
      session(std::move(executor), tlsTrust, systemProxyFor, optionsWith(totalTimeout)),
      tokens([this] { return state; }, [this](const ViewerState& changed) { state = changed; }),
      client({settings, session, tokens, clock}),
      customerApi(client, clock) {
}

CommandFailure helpdeskFailure(const std::exception& error, Caller caller, Bilingual action,
                               const Surroundings& surroundings) {
    if (dynamic_cast<const DecodingError*>(&error) != nullptr) {
        return helpdeskFailure(ViewerError::invalidResponse(error.what()), caller, action,
                               surroundings);
    }
    const auto issue = classify(error);
    if (caller == Caller::device && issue &&
        *issue != AgentConnectionIssue::temporarilyUnavailable) {
        return {exitCode::failure, issueText(*issue, surroundings.language)};
    }
    return {statusOf(error, caller), printableLine(sentence(error, action, surroundings.language))};
}

}  // namespace orv::companion
