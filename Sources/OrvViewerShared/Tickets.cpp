#include "OrvViewerShared/Tickets.h"

#include "OrvPlatform/Base64.h"

namespace orv {

namespace {

void addIfPresent(Json& object, const char* key, const std::optional<std::string>& value) {
    if (value) object[key] = *value;
}

}  // namespace

void to_json(Json& out, const AgentTicketAttachmentDraft& attachment) {
    std::string encoded;
    encoded.reserve(base64EncodedSize(attachment.data.size()));
    appendBase64(encoded, attachment.data);
    out = Json{{"filename", attachment.filename},
               {"content_type", attachment.contentType},
               {"data_base64", std::move(encoded)}};
    addIfPresent(out, "inline_placeholder", attachment.inlinePlaceholder);
}

void to_json(Json& out, const AgentTicketDraft& draft) {
    out = Json{{"customer_name", draft.customerName},
               {"customer_email", draft.customerEmail},
               {"cc_emails", draft.ccEmails},
               {"phone", draft.phone},
               {"subject", draft.subject},
               {"description", draft.descriptionHtml},
               {"priority", draft.priority},
               {"ticket_type", draft.ticketType}};
    out["attachments"] = draft.attachments;
}

void from_json(const Json& in, AgentTicketResponse& response) {
    response.publicId = requiredText(in, "public_id");
    response.ticketNumber = optionalText(in, "ticket_number");
    response.ticketUrl = optionalText(in, "ticket_url");
    response.subject = requiredText(in, "subject");
    response.status = requiredText(in, "status");
}

void to_json(Json& out, const CustomerProfile& profile) {
    out = Json{{"email", profile.email},
               {"full_name", profile.fullName},
               {"can_view_organization_tickets", profile.canViewOrganizationTickets}};
    addIfPresent(out, "phone", profile.phone);
    addIfPresent(out, "organization_name", profile.organizationName);
}

void from_json(const Json& in, CustomerProfile& profile) {
    profile.email = requiredText(in, "email");
    profile.fullName = requiredText(in, "full_name");
    profile.phone = optionalText(in, "phone");
    profile.organizationName = optionalText(in, "organization_name");
    profile.canViewOrganizationTickets = requiredBool(in, "can_view_organization_tickets");
}

void to_json(Json& out, const CustomerSessionResponse& session) {
    out = Json{{"access_token", session.accessToken}, {"expires_at", session.expiresAt}};
    out["customer"] = session.customer;
}

void from_json(const Json& in, CustomerSessionResponse& session) {
    session.accessToken = requiredText(in, "access_token");
    session.expiresAt = requiredText(in, "expires_at");
    const auto customer = in.find("customer");
    if (customer == in.end() || !customer->is_object()) {
        throw DecodingError("The value of \"customer\" is not an object.");
    }
    session.customer = customer->get<CustomerProfile>();
}

void from_json(const Json& in, CustomerTicketNotification& notification) {
    notification.messageId = requiredInteger(in, "message_id");
    notification.ticketPublicId = requiredText(in, "ticket_public_id");
    notification.ticketNumber = requiredText(in, "ticket_number");
    notification.subject = requiredText(in, "subject");
    notification.messageText = requiredText(in, "message_text");
    notification.createdAt = requiredText(in, "created_at");
}

void from_json(const Json& in, CustomerTicketNotificationPage& page) {
    page.cursor = requiredInteger(in, "cursor");
    page.hasMore = requiredBool(in, "has_more");
    const auto items = in.find("items");
    if (items == in.end() || !items->is_array()) {
        throw DecodingError("The value of \"items\" is not a list.");
    }
    page.items = items->get<std::vector<CustomerTicketNotification>>();
}

}  // namespace orv
