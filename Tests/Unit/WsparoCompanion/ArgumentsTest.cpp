#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "WsparoCompanion/Arguments.h"

namespace orv::companion {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Arguments parsed(const std::vector<std::string>& given) {
    return parseArguments(given, Language::polish);
}

std::string refusal(const std::vector<std::string>& given, Language language = Language::polish) {
    try {
        parseArguments(given, language);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "understood";
}

TEST(ArgumentsTest, findsCommandsOfOneAndOfTwoWords) {
    EXPECT_EQ(parsed({"status"}).command, Command::status);
    EXPECT_EQ(parsed({"chat", "watch"}).command, Command::chatWatch);
    EXPECT_EQ(parsed({"update", "check"}).command, Command::updateCheck);
    EXPECT_EQ(parsed({"ticket", "new"}).command, Command::ticketNew);
    EXPECT_EQ(parsed({"tickets"}).command, Command::tickets);
    EXPECT_EQ(parsed({"doctor"}).command, Command::doctor);
}

TEST(ArgumentsTest, takesValuesBehindTheOptionOrBehindAnEqualsSign) {
    const Arguments given =
        parsed({"chat", "send", "--conversation=r=1", "--sender", "--x", "Dzień dobry"});
    EXPECT_EQ(given.value("--conversation"), "r=1");
    EXPECT_EQ(given.value("--sender"), "--x");
    EXPECT_THAT(given.words, ElementsAre("Dzień dobry"));
    EXPECT_FALSE(given.has("--json"));
    EXPECT_EQ(given.value("--json"), std::nullopt);
}

TEST(ArgumentsTest, collectsOptionsThatMayComeSeveralTimes) {
    const Arguments given = parsed({"ticket", "new", "--attach", "a", "--attach=b", "--cc", "c"});
    EXPECT_THAT(given.values("--attach"), ElementsAre("a", "b"));
    EXPECT_THAT(given.values("--cc"), ElementsAre("c"));
    EXPECT_THAT(given.values("--subject"), IsEmpty());
    EXPECT_EQ(refusal({"login", "--email", "a", "--email", "b"}),
              "Opcję --email podano więcej niż raz.");
}

TEST(ArgumentsTest, takesEverythingBehindTwoDashesAsWords) {
    EXPECT_THAT(parsed({"chat", "send", "--", "--help"}).words, ElementsAre("--help"));
    EXPECT_THAT(parsed({"chat", "send", "-"}).words, ElementsAre("-"));
}

TEST(ArgumentsTest, helpAndVersionWin) {
    EXPECT_EQ(parsed({"--help"}).command, Command::help);
    EXPECT_EQ(parsed({"help"}).command, Command::help);
    EXPECT_EQ(parsed({"nonsense", "-h"}).command, Command::help);
    EXPECT_EQ(parsed({"status", "--version"}).command, Command::version);
    EXPECT_EQ(parsed({"chat", "send", "help"}).command, Command::chatSend);
}

TEST(ArgumentsTest, saysWhatItDoesNotUnderstand) {
    EXPECT_EQ(refusal({}), "Nie podano polecenia.");
    EXPECT_EQ(refusal({"stat"}), "Nieznane polecenie: stat.");
    EXPECT_EQ(refusal({"chat"}), "Niepełne lub nieznane polecenie: chat.");
    EXPECT_EQ(refusal({"chat", "read"}), "Niepełne lub nieznane polecenie: chat read.");
    EXPECT_EQ(refusal({"status", "--jsn"}), "To polecenie nie zna opcji --jsn.");
    EXPECT_EQ(refusal({"status", "--json=1"}), "Opcja --json nie przyjmuje wartości.");
    EXPECT_EQ(refusal({"login", "--email"}), "Opcja --email wymaga wartości.");
    EXPECT_EQ(refusal({"chat", "send"}), "Brakuje tekstu.");
    EXPECT_THAT(refusal({"chat", "send", "Dzień", "dobry"}), HasSubstr("dobry"));
    EXPECT_EQ(refusal({"stat"}, Language::english), "Unknown command: stat.");
}

TEST(ArgumentsTest, refusesAPasswordWithoutRepeatingIt) {
    const std::string answer = refusal({"login", "--password=tajne"});
    EXPECT_THAT(answer, HasSubstr("Hasła nie podaje się w wierszu poleceń"));
    EXPECT_EQ(answer.find("tajne"), std::string::npos);
}

TEST(ArgumentsTest, readsNumbersWithinTheirRange) {
    const auto number = [](const char* text) {
        return parsed({"update", "check", "--wait", text}).number("--wait", 60, Language::english);
    };
    EXPECT_EQ(number("1"), 1);
    EXPECT_EQ(number("60"), 60);
    EXPECT_EQ(parsed({"update", "check"}).number("--wait", 60, Language::english), std::nullopt);
    for (const char* wrong : {"0", "61", "-3", "3s", "", "1e1", "99999999999"})
        EXPECT_THROW(number(wrong), UsageError) << wrong;
}

}  // namespace
}  // namespace orv::companion
