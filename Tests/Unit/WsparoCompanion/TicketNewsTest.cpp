#include <chrono>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/OrvDeskApiClient.h"
#include "Support/CompanionFixture.h"
#include "Support/FakeHttpClient.h"
#include "Support/ScopedEnvironment.h"
#include "Support/TestLoop.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/TicketNews.h"

namespace orv::companion {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

std::string page(const std::string& items, int cursor, bool hasMore) {
    return fmt::format(R"({{"items": [{}], "cursor": {}, "has_more": {}}})", items, cursor,
                       hasMore);
}

std::string item(int id, const std::string& text) {
    return fmt::format(R"({{"message_id": {}, "ticket_public_id": "t", "ticket_number": "WB-1",
        "subject": "Ekran", "message_text": "{}", "created_at": "2026-03-01T09:00:00Z"}})",
                       id, text);
}

class TicketNewsTest : public CompanionFixture {
protected:
    TicketNewsTest() { file.write(session); }

    TicketNews news(bool isJson = false) {
        return TicketNews({surroundings, api, file, session, isJson});
    }
    int showOnce(TicketNews reader) { return loop.run(reader.showOnce()); }
    std::string urlOf(std::size_t request) const { return http.requests.at(request).url; }
    std::int64_t storedCursor() const { return file.read().record.cursor; }

    const test::ScopedEnvironment zone{"TZ", "UTC"};
    TestLoop loop{clock};
    FakeHttpClient http;
    DeviceTokenStore tokens{[] { return ViewerState{}; }, [](const ViewerState&) {}};
    ViewerSettings settings{"https://desk.example", "", 5, 60, 30, 1, 5, true};
    OrvDeskApiClient client{{settings, http, tokens, clock}};
    CustomerApi api{client, clock};
    CustomerSessionFile file{surroundings};
    CustomerSession session{"https://desk.example",
                            {"tok", "never", {"a@b.pl", "Anna", std::nullopt, std::nullopt, false}},
                            7};
};

TEST_F(TicketNewsTest, showsPagesFromTheCursorOnAndMovesIt) {
    http.thenAnswer(200, page(item(8, "pierwsza\\ndruga"), 8, true));
    http.thenAnswer(200, page(item(9, "trzecia"), 9, false));
    EXPECT_EQ(showOnce(news()), exitCode::success);
    EXPECT_THAT(urlOf(0), EndsWith("?after_message_id=7&limit=50"));
    EXPECT_THAT(urlOf(1), EndsWith("?after_message_id=8&limit=50"));
    EXPECT_EQ(headerOf(http.requests[0], "X-Customer-Session"), "tok");
    EXPECT_EQ(printed(),
              "2026-03-01 09:00  WB-1  Ekran\n    pierwsza\n    druga\n"
              "2026-03-01 09:00  WB-1  Ekran\n    trzecia\n");
    EXPECT_EQ(storedCursor(), 9);
}

TEST_F(TicketNewsTest, saysWhenThereIsNothing) {
    http.thenAnswer(200, page("", 7, false));
    showOnce(news());
    EXPECT_EQ(printed(), "Brak nowych wiadomości.\n");
}

TEST_F(TicketNewsTest, canBeginAnewWithoutForgettingTheCursor) {
    http.thenAnswer(200, page(item(3, "stara"), 3, false));
    TicketNews reader = news();
    reader.beginAnew();
    loop.run(reader.showOnce());
    EXPECT_THAT(urlOf(0), HasSubstr("after_message_id=0&"));
    EXPECT_EQ(storedCursor(), 7);
}

TEST_F(TicketNewsTest, doesNotRunInCirclesForAServerThatDoesNotMoveOn) {
    http.thenAnswer(200, page(item(8, "x"), 7, true));
    showOnce(news());
    EXPECT_EQ(http.requests.size(), 1U);
}

TEST_F(TicketNewsTest, givesScriptsOneObjectOnALine) {
    http.thenAnswer(200, page(item(8, "\\\"cytat\\\" 🖥️"), 8, false));
    showOnce(news(true));
    EXPECT_EQ(Json::parse(printed()), (Json{{"messageId", 8},
                                            {"ticketPublicId", "t"},
                                            {"ticketNumber", "WB-1"},
                                            {"subject", "Ekran"},
                                            {"messageText", "\"cytat\" 🖥️"},
                                            {"createdAt", "2026-03-01T09:00:00Z"}}));
}

TEST_F(TicketNewsTest, tellsThatTheSessionHasEnded) {
    http.thenAnswer(401, R"({"detail": "Invalid customer session"})");
    try {
        showOnce(news());
        FAIL();
    } catch (const CommandFailure& failure) {
        EXPECT_EQ(failure.status(), exitCode::loginNeeded);
        EXPECT_THAT(failure.what(), HasSubstr("Sesja wygasła"));
    }
}

TEST_F(TicketNewsTest, followsThroughAnOutageAndComplainsOnce) {
    http.thenFail(UrlErrorCode::cannotConnectToHost).thenFail(UrlErrorCode::cannotConnectToHost);
    http.thenFail(UrlErrorCode::cannotConnectToHost).thenFail(UrlErrorCode::cannotConnectToHost);
    http.thenAnswer(200, page(item(8, "jestem"), 8, false));
    http.thenAnswer(401);
    EXPECT_EQ(failureOf([this] {
                  TicketNews reader = news();
                  loop.run(reader.follow(30s));
              }),
              "Sesja wygasła. Zaloguj się ponownie: wsparo login");
    EXPECT_EQ(complained(),
              "wsparo: Nie udało się pobrać wiadomości, ponieważ nie ma połączenia z serwerem. "
              "Sprawdź Internet i spróbuj ponownie.\n");
    EXPECT_THAT(printed(), HasSubstr("jestem"));
    EXPECT_THAT(clock.sleeps, ElementsAre(750ms, 30s, 750ms, 30s, 30s));
}

TEST_F(TicketNewsTest, doesNotLogInAgainWhoeverLoggedOutMeanwhile) {
    http.thenAnswer(200, page(item(8, "x"), 8, false));
    TicketNews reader = news();
    file.remove();
    loop.run(reader.showOnce());
    EXPECT_EQ(file.read().condition, FileCondition::missing);
}

}  // namespace
}  // namespace orv::companion
