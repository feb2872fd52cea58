#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Json.h"

namespace orv {

struct AgentTicketAttachmentDraft {
    std::string filename;
    std::string contentType;
    std::string data;  // bytes; they travel as Base64
    /// The text in the description that stands for this picture.
    std::optional<std::string> inlinePlaceholder;
};
void to_json(Json& out, const AgentTicketAttachmentDraft& attachment);

/// A ticket as the person at the Mac wrote it.
struct AgentTicketDraft {
    std::string customerName;
    std::string customerEmail;
    std::vector<std::string> ccEmails;
    std::string phone;
    std::string subject;
    std::string descriptionHtml;
    std::string priority;
    std::string ticketType;
    std::vector<AgentTicketAttachmentDraft> attachments;
};
void to_json(Json& out, const AgentTicketDraft& draft);

/// The readers of the server's answers throw DecodingError naming the key.
struct AgentTicketResponse {
    std::string publicId;
    std::optional<std::string> ticketNumber;
    std::optional<std::string> ticketUrl;
    std::string subject;
    std::string status;
};
void from_json(const Json& in, AgentTicketResponse& response);

struct CustomerProfile {
    std::string email;
    std::string fullName;
    std::optional<std::string> phone;
    std::optional<std::string> organizationName;
    bool canViewOrganizationTickets = false;

    bool operator==(const CustomerProfile&) const = default;
};
void to_json(Json& out, const CustomerProfile& profile);
void from_json(const Json& in, CustomerProfile& profile);

/// Also kept between sessions, in the form in which the server sent it.
struct CustomerSessionResponse {
    std::string accessToken;
    std::string expiresAt;  // the server's own text
    CustomerProfile customer;

    bool operator==(const CustomerSessionResponse&) const = default;
};
void to_json(Json& out, const CustomerSessionResponse& session);
void from_json(const Json& in, CustomerSessionResponse& session);

/// A consultant's new message on one of the customer's tickets.
struct CustomerTicketNotification {
    std::int64_t messageId = 0;
    std::string ticketPublicId;
    std::string ticketNumber;
    std::string subject;
    std::string messageText;
    std::string createdAt;  // the server's own text
};
void from_json(const Json& in, CustomerTicketNotification& notification);

struct CustomerTicketNotificationPage {
    std::vector<CustomerTicketNotification> items;
    std::int64_t cursor = 0;
    bool hasMore = false;
};
void from_json(const Json& in, CustomerTicketNotificationPage& page);

}  // namespace orv
