#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {
namespace {

using testing::Optional;

std::string describe(int status, const std::string& body) {
    return ViewerError::http(status, body).what();
}

std::string longSentence(int status) {
    return "Serwer zwrócił błąd HTTP " + std::to_string(status) +
           ". Spróbuj ponownie lub skontaktuj się z administratorem.";
}

TEST(ViewerErrorTest, pagesAndLongBodiesAreNeverShown) {
    EXPECT_EQ(describe(502, "<!DOCTYPE html>\n<HTML><body>Bad</body></HTML>"), longSentence(502));
    EXPECT_EQ(describe(400, std::string(601, 'x')), longSentence(400));
    EXPECT_EQ(describe(400, std::string(600, 'x')), "HTTP 400: " + std::string(600, 'x'));
}

TEST(ViewerErrorTest, theLimitCountsCharactersOfTheTrimmedBody) {
    std::string sixHundredLetters;
    for (int i = 0; i < 600; ++i)
        sixHundredLetters += "ż";
    EXPECT_EQ(describe(400, "\n " + sixHundredLetters + " \n"), "HTTP 400: " + sixHundredLetters);
    EXPECT_EQ(describe(400, sixHundredLetters + "ż"), longSentence(400));
}

TEST(ViewerErrorTest, describesItselfByStatusAndTrimmedBody) {
    EXPECT_EQ(describe(400, ""), "HTTP 400");
    EXPECT_EQ(describe(400, " \n\t"), "HTTP 400");
    EXPECT_EQ(describe(404, " not here\n"), "HTTP 404: not here");
}

TEST(ViewerErrorTest, everyOtherKindDescribesItselfByItsMessage) {
    EXPECT_STREQ(ViewerError::configuration("a").what(), "a");
    EXPECT_STREQ(ViewerError::invalidResponse("b").what(), "b");
    EXPECT_STREQ(ViewerError::temporarilyUnavailable("c").what(), "c");
    EXPECT_STREQ(ViewerError::unsupported("d").what(), "d");
}

TEST(ServerErrorDetailTest, onlyATextUnderDetailOfAnObjectCounts) {
    EXPECT_THAT(serverErrorDetail(R"({"detail": "  Brak pola \n"})"),
                Optional(std::string("Brak pola")));
    for (const char* body :
         {R"({"detail": 5})", R"({"detail": "  "})", R"({"message": "x"})", R"(["detail"])",
          R"("detail")", "", "<html>", R"({"detail": null})", "{\"detail\": \"\xff\"}"}) {
        EXPECT_EQ(serverErrorDetail(body), std::nullopt) << body;
    }
}

const std::string action = "sprawdzić aktualizację";

std::string sentence(const std::exception& error) {
    const std::string whole = viewerErrorMessage(error, action);
    const std::string begin = "Nie udało się " + action;
    EXPECT_EQ(whole.substr(0, begin.size()), begin);
    return whole.substr(begin.size());
}

std::string httpSentence(int status, const std::string& body = "") {
    return sentence(ViewerError::http(status, body));
}

TEST(ViewerErrorMessageTest, explainsHttpStatuses) {
    EXPECT_EQ(httpSentence(401),
              ", ponieważ dane logowania lub sesja są nieprawidłowe. Zaloguj się ponownie.");
    EXPECT_EQ(httpSentence(403), ", ponieważ konto nie ma wymaganych uprawnień.");
    EXPECT_EQ(httpSentence(404), ", ponieważ żądany zasób nie istnieje lub został usunięty.");
    EXPECT_EQ(httpSentence(429),
              ", ponieważ wykonano zbyt wiele prób. Odczekaj chwilę i spróbuj ponownie.");
    for (const int status : {409, 422}) {
        EXPECT_EQ(httpSentence(status),
                  ", ponieważ serwer odrzucił przesłane dane. Sprawdź formularz i spróbuj "
                  "ponownie.");
        EXPECT_EQ(httpSentence(status, R"({"detail": " Temat jest pusty "})"),
                  ": Temat jest pusty");
        EXPECT_EQ(httpSentence(status, R"({"detail": " "})"),
                  ", ponieważ serwer odrzucił przesłane dane. Sprawdź formularz i spróbuj "
                  "ponownie.");
    }
}

TEST(ViewerErrorMessageTest, serverTroubleNeverShowsTheServersDetail) {
    for (const int status : {500, 503, 599}) {
        EXPECT_EQ(httpSentence(status, R"({"detail": "stack trace"})"),
                  ", ponieważ serwer ma chwilowy problem. Spróbuj ponownie za kilka minut.");
    }
}

TEST(ViewerErrorMessageTest, otherStatusesShowTheDetailOrTheNumber) {
    EXPECT_EQ(httpSentence(418, "no json"), ". Serwer zwrócił błąd HTTP 418.");
    EXPECT_EQ(httpSentence(418, R"({"detail": "Czajnik"})"), ": Czajnik");
    EXPECT_EQ(httpSentence(499, R"({"detail": "Czajnik"})"), ": Czajnik");
    EXPECT_EQ(httpSentence(600), ". Serwer zwrócił błąd HTTP 600.");
}

TEST(ViewerErrorMessageTest, explainsTheAgentsOwnErrors) {
    EXPECT_EQ(sentence(ViewerError::configuration("x")),
              ", ponieważ konfiguracja aplikacji jest niepełna. Otwórz Ustawienia i sprawdź dane "
              "połączenia.");
    EXPECT_EQ(sentence(ViewerError::invalidResponse("x")),
              ", ponieważ serwer zwrócił nieprawidłową odpowiedź. Spróbuj ponownie; jeśli problem "
              "wraca, skontaktuj się z wsparoą techniczną.");
    EXPECT_EQ(sentence(ViewerError::temporarilyUnavailable("x")),
              ", ponieważ nie ma połączenia z serwerem. Sprawdź Internet i spróbuj ponownie.");
    EXPECT_EQ(sentence(ViewerError::unsupported("Tego nie umiem")), ": Tego nie umiem");
    EXPECT_EQ(sentence(std::runtime_error("Dysk pełny")), ". Dysk pełny");
}

TEST(ViewerErrorMessageTest, explainsNetworkErrorsByTheirCode) {
    const auto of = [](UrlErrorCode code) { return sentence(UrlError(code, "x")); };
    for (const auto code :
         {UrlErrorCode::notConnectedToInternet, UrlErrorCode::networkConnectionLost}) {
        EXPECT_EQ(of(code), ", ponieważ komputer nie ma połączenia z Internetem.");
    }
    EXPECT_EQ(of(UrlErrorCode::timedOut),
              ", ponieważ serwer nie odpowiedział na czas. Spróbuj ponownie.");
    for (const auto code : {UrlErrorCode::cannotFindHost, UrlErrorCode::dnsLookupFailed,
                            UrlErrorCode::cannotConnectToHost}) {
        EXPECT_EQ(of(code), ", ponieważ nie można odnaleźć lub połączyć się z serwerem.");
    }
    for (const auto code :
         {UrlErrorCode::secureConnectionFailed, UrlErrorCode::serverCertificateUntrusted}) {
        EXPECT_EQ(of(code), ", ponieważ nie można bezpiecznie zweryfikować połączenia z serwerem.");
    }
    for (const auto code :
         {UrlErrorCode::cancelled, UrlErrorCode::badUrl, UrlErrorCode::unknown,
          UrlErrorCode::badServerResponse, UrlErrorCode::cannotDecodeContentData,
          UrlErrorCode::cannotParseResponse, UrlErrorCode::dataLengthExceedsMaximum,
          UrlErrorCode::httpTooManyRedirects, UrlErrorCode::redirectToNonSecureUrl,
          UrlErrorCode::resourceUnavailable, UrlErrorCode::unsupportedUrl}) {
        EXPECT_EQ(of(code), " z powodu błędu połączenia. Spróbuj ponownie.");
    }
}

}  // namespace
}  // namespace orv
