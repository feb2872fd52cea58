#include <deque>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/CompanionFixture.h"
#include "WsparoCompanion/TicketDraft.h"
#include "WsparoCompanion/TicketForm.h"

namespace orv::companion {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class TicketFormTest : public CompanionFixture {
protected:
    TicketFormTest() {
        arguments.options = {{"--subject", {"Drukarka"}},
                             {"--description", {"Nie <drukuje>"}},
                             {"--email", {"a@b.pl"}}};
    }

    AgentTicketDraft fill(TicketForm::Answers answers = nullptr) {
        return TicketForm(
                   {surroundings, arguments, "Anna Żak", "anna@firma.pl", std::move(answers)})
            .fill();
    }

    TicketForm::Answers typing(std::deque<std::string> lines) {
        typed = std::move(lines);
        return [this]() -> std::optional<std::string> {
            if (typed.empty()) return std::nullopt;
            std::string line = typed.front();
            typed.pop_front();
            return line;
        };
    }

    std::string refusal(TicketForm::Answers answers = nullptr) {
        return failureOf<UsageError>([&] { fill(std::move(answers)); });
    }

    Arguments arguments;
    std::deque<std::string> typed;
};

TEST_F(TicketFormTest, isFilledInFromTheCommandLine) {
    arguments.options["--cc"] = {"c@d.pl", "e@f.pl"};
    arguments.options["--phone"] = {"+48 600"};
    const AgentTicketDraft draft = fill();
    EXPECT_EQ(draft.subject, "Drukarka");
    EXPECT_EQ(draft.descriptionHtml, "<p>Nie &lt;drukuje&gt;</p>");
    EXPECT_EQ(draft.customerName, "Anna Żak");
    EXPECT_EQ(draft.customerEmail, "a@b.pl");
    EXPECT_THAT(draft.ccEmails, ElementsAre("c@d.pl", "e@f.pl"));
    EXPECT_EQ(draft.phone, "+48 600");
    EXPECT_EQ(draft.priority, "normal");
    EXPECT_EQ(draft.ticketType, "incident");
    EXPECT_EQ(complained(), "");
}

TEST_F(TicketFormTest, asksForWhatIsMissing) {
    arguments.options.clear();
    const AgentTicketDraft draft =
        fill(typing({"Ekran", "gaśnie", "co godzinę", ".", "", "jan@firma.pl", "123"}));
    EXPECT_EQ(draft.subject, "Ekran");
    EXPECT_EQ(draft.descriptionHtml, "<p>gaśnie<br>co godzinę</p>");
    EXPECT_EQ(draft.customerName, "Anna Żak");
    EXPECT_EQ(draft.customerEmail, "jan@firma.pl");
    EXPECT_EQ(draft.phone, "123");
    EXPECT_EQ(complained(),
              "Temat: Opis (koniec: wiersz z samą kropką):\nImię i nazwisko [Anna Żak]: E-mail "
              "[anna@firma.pl]: Telefon (można pominąć): ");
}

TEST_F(TicketFormTest, saysWhatIsMissingWhereNobodyCanBeAsked) {
    arguments.options.erase("--description");
    EXPECT_EQ(refusal(), "Brakuje opcji --description.");
    arguments.options.erase("--subject");
    EXPECT_EQ(refusal(), "Brakuje opcji --subject.");
    EXPECT_EQ(refusal(typing({})), "Brakuje opcji --subject.");
}

TEST_F(TicketFormTest, refusesWhatIsNoAddressOrNoText) {
    arguments.options["--email"] = {"anna"};
    EXPECT_EQ(refusal(), "To nie jest adres e-mail: anna.");
    arguments.options["--email"] = {"a@b.pl"};
    arguments.options["--cc"] = {"x y@z"};
    EXPECT_EQ(refusal(), "To nie jest adres e-mail: x y@z.");
    arguments.options["--subject"] = {"\xFF"};
    EXPECT_EQ(refusal(), "Tekst nie jest zapisany w UTF-8.");
}

TEST_F(TicketFormTest, takesAttachmentsWithTheirOwnNames) {
    put("/zrzut.PNG", std::string("\x89PNG\0\xFF", 6));
    put("/dane", "");
    arguments.options["--attach"] = {folder.path("zrzut.PNG"), folder.path("dane")};
    const AgentTicketDraft draft = fill();
    ASSERT_EQ(draft.attachments.size(), 2U);
    EXPECT_EQ(draft.attachments[0].filename, "zrzut.PNG");
    EXPECT_EQ(draft.attachments[0].contentType, "image/png");
    EXPECT_EQ(draft.attachments[0].data, std::string("\x89PNG\0\xFF", 6));
    EXPECT_EQ(draft.attachments[1].contentType, "application/octet-stream");
}

TEST_F(TicketFormTest, refusesAttachmentsThatAreTooLargeOrNotThere) {
    put("/wideo.mov", std::string(attachmentLimitBytes + 1, 'x'));
    arguments.options["--attach"] = {folder.path("wideo.mov")};
    EXPECT_THAT(failureOf([this] { fill(); }), HasSubstr("wideo.mov jest większy niż 25 MB"));
    arguments.options["--attach"] = {folder.path("nic")};
    EXPECT_THROW(fill(), FileError);
    arguments.options["--attach"] = {folder.path()};
    EXPECT_THROW(fill(), FileError);
}

TEST(TicketDraftTest, writesHtmlThatLooksLikeTheText) {
    EXPECT_EQ(htmlOf("a & b\n\"c\" <d>\r\n🖥️"),
              "<p>a &amp; b<br>&quot;c&quot; &lt;d&gt;<br>🖥️</p>");
    EXPECT_EQ(htmlOf("a\n\nb"), "<p>a<br><br>b</p>");
}

TEST(TicketDraftTest, knowsTheShapeOfAnAddress) {
    for (const char* good : {"a@b", "anna.żak+x@firma.pl"})
        EXPECT_TRUE(looksLikeEmail(good)) << good;
    for (const char* bad : {"", "@", "a@", "@b", "a@b@c", "a b@c", "a@b, c@d", "<a@b>"})
        EXPECT_FALSE(looksLikeEmail(bad)) << bad;
}

}  // namespace
}  // namespace orv::companion
