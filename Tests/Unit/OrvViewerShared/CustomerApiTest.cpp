#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Base64.h"
#include "OrvViewerShared/CustomerApi.h"
#include "OrvViewerShared/ViewerError.h"
#include "Support/AgentFixture.h"
#include "Support/ErrorText.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* ticketAnswer = R"({"public_id":"T1","subject":"s","status":"new"})";
constexpr const char* emptyPage = R"({"items":[],"cursor":7,"has_more":false})";

class CustomerApiTest : public AgentFixture {
protected:
    static AgentTicketDraft draft() {
        return {"Anna Żak", "a@b.pl", {"c@d.pl", "e@f.pl"}, "+48 1", "Nie \"działa\" 🖥️",
                "<p>x</p>", "normal", "incident",           {}};
    }
    static ViewerState registered() {
        ViewerState state;
        state.deviceUid = "u";
        state.supportId = "s";
        return state;
    }
    AgentTicketResponse create(const AgentTicketDraft& given,
                               const ViewerState& state = registered()) {
        http.thenAnswer(200, ticketAnswer);
        CustomerApi customers(api(), clock);
        return loop.run(customers.createTicket(given, state));
    }
    CustomerSessionResponse login() {
        CustomerApi customers(api(), clock);
        return loop.run(customers.loginCustomer("a@b.pl", "hasło\""));
    }
    CustomerTicketNotificationPage notifications(const std::string& token) {
        CustomerApi customers(api(), clock);
        return loop.run(customers.customerTicketNotifications(token, -3, 50));
    }
    Json body(std::size_t index) const { return Json::parse(http.body(index)); }
};

TEST_F(CustomerApiTest, aTicketGoesOutAsTheDevice) {
    tokenStore.save("dev");
    EXPECT_EQ(create(draft()).publicId, "T1");
    EXPECT_THAT(http.lines(),
                ElementsAre("POST https://desk.example/api/agent/tickets Device dev"));

    Json sent = body(0);
    EXPECT_THAT(sent.at("client_request_id").get<std::string>(),
                MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    sent.erase("client_request_id");
    EXPECT_EQ(sent, Json::parse(R"({
        "device_uid": "u", "support_id": "s", "customer_name": "Anna Żak",
        "customer_email": "a@b.pl", "cc_emails": ["c@d.pl", "e@f.pl"], "phone": "+48 1",
        "subject": "Nie \"działa\" 🖥️", "description": "<p>x</p>", "priority": "normal",
        "ticket_type": "incident", "attachments": [],
        "source_metadata": {"client_app": {"platform": "macos", "agent_version": "0.2.55",
                                           "submitted_at": "2026-03-01T09:15:02Z"}}})"));
}

TEST_F(CustomerApiTest, anUnknownDeviceIsNull) {
    AgentTicketDraft given = draft();
    given.ccEmails.clear();
    create(given, ViewerState{});
    EXPECT_TRUE(body(0).at("device_uid").is_null());
    EXPECT_TRUE(body(0).at("support_id").is_null());
    EXPECT_EQ(body(0).at("cc_emails"), Json::array());
    EXPECT_EQ(headerOf(http.requests[0], "Authorization"), "Bearer viewer");
}

TEST_F(CustomerApiTest, everyCallIsARequestOfItsOwn) {
    create(draft());
    create(draft());
    EXPECT_NE(body(0).at("client_request_id"), body(1).at("client_request_id"));
}

TEST_F(CustomerApiTest, arepeatedTransferIsTheSameRequest) {
    http.thenAnswer(503);
    create(draft());
    EXPECT_EQ(http.body(0), http.body(1));
}

TEST_F(CustomerApiTest, attachmentsKeepTheirOrder) {
    AgentTicketDraft given = draft();
    given.attachments = {{"b.png", "image/png", std::string("\0\xff>", 3), "[[1]]"},
                         {"a.txt", "text/plain", "", std::nullopt}};
    create(given);
    EXPECT_EQ(body(0).at("attachments"), Json::parse(R"([
        {"filename": "b.png", "content_type": "image/png", "data_base64": "AP8+",
         "inline_placeholder": "[[1]]"},
        {"filename": "a.txt", "content_type": "text/plain", "data_base64": ""}])"));
}

TEST_F(CustomerApiTest, aLargeAttachmentArrivesWhole) {
    AgentTicketDraft given = draft();
    std::string data(20'000'000, '\x5a');
    data.back() = '!';
    given.attachments = {{"video.mov", "video/quicktime", data, std::nullopt}};
    create(given);
    const std::string& sent = *http.requests[0].body;
    const std::string key = "\"data_base64\":\"";
    const std::size_t begin = sent.find(key) + key.size();
    EXPECT_TRUE(decodeBase64(sent.substr(begin, sent.find('"', begin) - begin)) == data);
}

TEST_F(CustomerApiTest, aCustomerLogsInWithoutTheDevicesRights) {
    tokenStore.save("dev");
    http.thenAnswer(200, R"({"access_token":"abc","expires_at":"x","customer":{"email":"a@b.pl",
        "full_name":"Anna","can_view_organization_tickets":false}})");
    EXPECT_EQ(login().accessToken, "abc");
    EXPECT_THAT(http.lines(), ElementsAre("POST https://desk.example/api/customer/session"));
    EXPECT_EQ(http.body(0), R"({"email":"a@b.pl","password":"hasło\""})");
    EXPECT_EQ(headerOf(http.requests[0], "X-Customer-Session"), "");
}

TEST_F(CustomerApiTest, notificationsAreAskedForInTheCustomersName) {
    tokenStore.save("dev");
    http.thenAnswer(200, emptyPage);
    EXPECT_EQ(notifications("abc").cursor, 7);
    EXPECT_THAT(http.lines(), ElementsAre("GET https://desk.example/api/customer/"
                                          "ticket-notifications?after_message_id=-3&limit=50"));
    EXPECT_EQ(headerOf(http.requests[0], "X-Customer-Session"), "abc");
    EXPECT_EQ(http.requests[0].body, nullptr);
}

TEST_F(CustomerApiTest, withoutASessionTheServersRefusalSurfaces) {
    http.thenAnswer(401, "no session");
    try {
        notifications("");
        FAIL();
    } catch (const ViewerError& error) {
        EXPECT_EQ(error, ViewerError::http(401, "no session"));
    }
    for (const HttpHeader& header : http.requests[0].headers)
        EXPECT_NE(header.name, "X-Customer-Session");
}

TEST_F(CustomerApiTest, anAddressThatIsNoneSendsNothing) {
    settings.serverBaseUrl = "https://desk example";
    EXPECT_EQ(errorOf([&] { create(draft()); }), "Invalid URL for /api/agent/tickets.");
    EXPECT_EQ(errorOf([&] { login(); }), "Invalid URL for /api/customer/session.");
    EXPECT_EQ(errorOf([&] { notifications("abc"); }),
              "Invalid URL for /api/customer/ticket-notifications?after_message_id=-3&limit=50.");
    EXPECT_THAT(http.requests, IsEmpty());
}

TEST_F(CustomerApiTest, anAnswerOfAnotherShapeNamesTheKey) {
    http.thenAnswer(200, R"({"public_id":"T1","subject":"s"})");
    CustomerApi customers(api(), clock);
    EXPECT_EQ(errorOf([&] { loop.run(customers.createTicket(draft(), registered())); }),
              "The key \"status\" is missing.");
    http.thenAnswer(200, R"({"expires_at":"x"})");
    EXPECT_EQ(errorOf([&] { login(); }), "The key \"access_token\" is missing.");
    http.thenAnswer(200, R"({"items":[],"cursor":1})");
    EXPECT_EQ(errorOf([&] { notifications("abc"); }), "The key \"has_more\" is missing.");
    http.thenAnswer(200, "<html>");
    EXPECT_EQ(errorOf([&] { notifications("abc"); }), "Not valid JSON at byte 1.");
}

}  // namespace
}  // namespace orv
