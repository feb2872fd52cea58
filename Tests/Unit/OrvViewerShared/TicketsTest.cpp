#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Tickets.h"
#include "Support/ErrorText.h"

namespace orv {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

/// Each key in turn is missing and of a type that it never has.
template <typename Record>
void expectRequired(const char* text, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        Json json = Json::parse(text);
        ASSERT_EQ(decodingErrorOf<Record>(json), "no error");
        json[key] = 1.5;
        EXPECT_THAT(decodingErrorOf<Record>(json),
                    testing::HasSubstr('"' + std::string(key) + '"'));
        json.erase(key);
        EXPECT_THAT(decodingErrorOf<Record>(json),
                    testing::HasSubstr('"' + std::string(key) + '"'));
    }
}

constexpr const char* ticketText =
    R"({"public_id":"T1","ticket_number":"2026/7","ticket_url":"https://d/t/1","subject":"s",)"
    R"("status":"new","unknown":[1]})";
constexpr const char* sessionText =
    R"({"access_token":"abc","customer":{"can_view_organization_tickets":true,)"
    R"("email":"a@b.pl","full_name":"Anna","organization_name":"Brenvox","phone":"1"},)"
    R"("expires_at":"jutro"})";
constexpr const char* profileText =
    R"({"email":"a@b.pl","full_name":"Anna","can_view_organization_tickets":false})";
constexpr const char* notificationText =
    R"({"message_id":9007199254740993,"ticket_public_id":"T1","ticket_number":"7","subject":"s",)"
    R"("message_text":"m","created_at":"wczoraj"})";

TEST(TicketsTest, aTicketsAnswerNamesTheTicket) {
    const auto ticket = Json::parse(ticketText).get<AgentTicketResponse>();
    EXPECT_EQ(ticket.publicId, "T1");
    EXPECT_EQ(ticket.ticketNumber, "2026/7");
    EXPECT_EQ(ticket.ticketUrl, "https://d/t/1");
    EXPECT_EQ(ticket.subject, "s");
    EXPECT_EQ(ticket.status, "new");
    expectRequired<AgentTicketResponse>(ticketText, {"public_id", "subject", "status"});
}

TEST(TicketsTest, aTicketNeedsNoNumberAndNoUrl) {
    const auto ticket =
        Json::parse(R"({"public_id":"T1","ticket_number":null,"subject":"","status":""})")
            .get<AgentTicketResponse>();
    EXPECT_EQ(ticket.ticketNumber, std::nullopt);
    EXPECT_EQ(ticket.ticketUrl, std::nullopt);
    EXPECT_EQ(decodingErrorOf<AgentTicketResponse>(
                  Json::parse(R"({"public_id":"T1","ticket_number":7,"subject":"","status":""})")),
              "The value of \"ticket_number\" is not a text.");
}

TEST(TicketsTest, aSessionIsReadAndWrittenAlike) {
    const auto session = Json::parse(sessionText).get<CustomerSessionResponse>();
    EXPECT_EQ(session.accessToken, "abc");
    EXPECT_EQ(session.expiresAt, "jutro");
    EXPECT_EQ(session.customer, (CustomerProfile{"a@b.pl", "Anna", "1", "Brenvox", true}));
    EXPECT_EQ(compactJson(session), sessionText);
    expectRequired<CustomerSessionResponse>(sessionText,
                                            {"access_token", "expires_at", "customer"});
}

TEST(TicketsTest, aCustomerNeedsNoPhoneAndNoOrganization) {
    const auto profile = Json::parse(profileText).get<CustomerProfile>();
    EXPECT_EQ(profile, (CustomerProfile{"a@b.pl", "Anna", std::nullopt, std::nullopt, false}));
    EXPECT_EQ(Json(profile), Json::parse(profileText));
    expectRequired<CustomerProfile>(profileText,
                                    {"email", "full_name", "can_view_organization_tickets"});
}

TEST(TicketsTest, aSessionWithoutTheCustomersRightsIsRefused) {
    Json session = Json::parse(sessionText);
    session["customer"].erase("can_view_organization_tickets");
    EXPECT_EQ(decodingErrorOf<CustomerSessionResponse>(session),
              "The key \"can_view_organization_tickets\" is missing.");
}

TEST(TicketsTest, aPageOfNotifications) {
    const Json json{{"items", {Json::parse(notificationText)}}, {"cursor", 12}, {"has_more", true}};
    const auto page = json.get<CustomerTicketNotificationPage>();
    ASSERT_THAT(page.items, SizeIs(1));
    EXPECT_EQ(page.items[0].messageId, 9007199254740993);
    EXPECT_EQ(page.items[0].ticketPublicId, "T1");
    EXPECT_EQ(page.items[0].ticketNumber, "7");
    EXPECT_EQ(page.items[0].subject, "s");
    EXPECT_EQ(page.items[0].messageText, "m");
    EXPECT_EQ(page.items[0].createdAt, "wczoraj");
    EXPECT_EQ(page.cursor, 12);
    EXPECT_TRUE(page.hasMore);
    expectRequired<CustomerTicketNotificationPage>(json.dump().c_str(),
                                                   {"items", "cursor", "has_more"});
    expectRequired<CustomerTicketNotification>(
        notificationText, {"message_id", "ticket_public_id", "ticket_number", "subject",
                           "message_text", "created_at"});
    EXPECT_THAT(Json::parse(R"({"items":[],"cursor":0,"has_more":false})")
                    .get<CustomerTicketNotificationPage>()
                    .items,
                IsEmpty());
    EXPECT_EQ(decodingErrorOf<CustomerTicketNotificationPage>(
                  Json::parse(R"({"items":[{}],"cursor":0,"has_more":false})")),
              "The key \"message_id\" is missing.");
}

TEST(TicketsTest, noAnswerIsTakenForAnotherShape) {
    for (const Json& json : {Json::array(), Json("x"), Json()}) {
        EXPECT_EQ(decodingErrorOf<AgentTicketResponse>(json), "A JSON object was expected.");
        EXPECT_EQ(decodingErrorOf<CustomerSessionResponse>(json), "A JSON object was expected.");
        EXPECT_EQ(decodingErrorOf<CustomerTicketNotificationPage>(json),
                  "A JSON object was expected.");
    }
}

}  // namespace
}  // namespace orv
