#include "WsparoCompanion/IssueTexts.h"

namespace orv::companion {

namespace {

const char* inEnglish(AgentConnectionIssue issue) {
    switch (issue) {
        case AgentConnectionIssue::missingViewerToken:
            return "There is no Wsparo token. Open the settings, enter a valid token and save it.";
        case AgentConnectionIssue::invalidViewerToken:
        case AgentConnectionIssue::invalidDeviceToken:
            return "The Wsparo token is not valid or has expired. Open the settings, enter a valid "
                   "token and run the inventory again.";
        case AgentConnectionIssue::deviceAssignedElsewhere:
            return "This device belongs to another company. Ask a Brenvox consultant to confirm "
                   "where it belongs.";
        case AgentConnectionIssue::deviceDeactivated:
            return "This device was switched off in the helpdesk. Ask a Brenvox consultant.";
        case AgentConnectionIssue::temporarilyUnavailable: break;
    }
    return "The helpdesk cannot be reached now. The agent tries again by itself.";
}

}  // namespace

std::string issueText(AgentConnectionIssue issue, Language language) {
    return language == Language::english ? inEnglish(issue)
                                         : std::string(connectionIssueMessage(issue));
}

}  // namespace orv::companion
