#include "OrvViewerShared/CustomerApi.h"

#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Uuid.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/SanitizeJson.h"

namespace orv {

Task<AgentTicketResponse> CustomerApi::createTicket(AgentTicketDraft draft, ViewerState state) {
    Json body = draft;
    body["device_uid"] = sanitizeJson(state.deviceUid);
    body["support_id"] = sanitizeJson(state.supportId);
    body["client_request_id"] = randomUuid();
    body["source_metadata"]["client_app"] = Json{{"platform", "macos"},
                                                 {"agent_version", MacViewerBuildInfo::version},
                                                 {"submitted_at", sanitizeJson(clock.now())}};
    const std::string answer = co_await client.requestWithAgentAuthorization(
        "POST", "/api/agent/tickets", std::move(body));
    co_return parseJson(answer).get<AgentTicketResponse>();
}

Task<CustomerSessionResponse> CustomerApi::loginCustomer(std::string email, std::string password) {
    auto body = std::make_shared<const std::string>(
        compactJson(Json{{"email", std::move(email)}, {"password", std::move(password)}}));
    const std::string url = client.endpointUrl("/api/customer/session");
    const std::string answer =
        co_await client.performRequest("POST", url, std::move(body), std::nullopt, std::nullopt);
    co_return parseJson(answer).get<CustomerSessionResponse>();
}

Task<CustomerTicketNotificationPage> CustomerApi::customerTicketNotifications(
    std::string sessionToken, std::int64_t afterMessageId, std::int64_t limit) {
    const std::string url = client.endpointUrl(fmt::format(
        "/api/customer/ticket-notifications?after_message_id={}&limit={}", afterMessageId, limit));
    const std::string answer =
        co_await client.performRequest("GET", url, nullptr, std::move(sessionToken), std::nullopt);
    co_return parseJson(answer).get<CustomerTicketNotificationPage>();
}

}  // namespace orv
