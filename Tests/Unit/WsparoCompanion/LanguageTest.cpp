#include <map>
#include <string>

#include <gtest/gtest.h>

#include "WsparoCompanion/Language.h"

namespace orv::companion {
namespace {

Language languageWith(const std::map<std::string, std::string>& variables) {
    return languageOf([&](const char* name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        if (found == variables.end()) return std::nullopt;
        return found->second;
    });
}

TEST(LanguageTest, isPolishUnlessTheLocaleIsEnglish) {
    EXPECT_EQ(languageWith({}), Language::polish);
    EXPECT_EQ(languageWith({{"LANG", "pl_PL.UTF-8"}}), Language::polish);
    EXPECT_EQ(languageWith({{"LANG", "C"}}), Language::polish);
    EXPECT_EQ(languageWith({{"LANG", "de_DE.UTF-8"}}), Language::polish);
    EXPECT_EQ(languageWith({{"LANG", "en_US.UTF-8"}}), Language::english);
    EXPECT_EQ(languageWith({{"LANG", "en"}}), Language::english);
    EXPECT_EQ(languageWith({{"LANG", "enm_GB"}}), Language::polish);
}

TEST(LanguageTest, takesTheFirstVariableThatIsSetAndNotEmpty) {
    EXPECT_EQ(languageWith({{"LC_ALL", "pl_PL"}, {"LC_MESSAGES", "en_US"}, {"LANG", "en_US"}}),
              Language::polish);
    EXPECT_EQ(languageWith({{"LC_ALL", ""}, {"LC_MESSAGES", "en_US"}, {"LANG", "pl_PL"}}),
              Language::english);
    EXPECT_EQ(languageWith({{"LC_MESSAGES", ""}, {"LANG", "en_GB.UTF-8"}}), Language::english);
}

TEST(LanguageTest, countsInPolishWithThreeForms) {
    constexpr CountedNoun hours{"godzinę", "godziny", "godzin", "hour", "hours"};
    const auto polish = [&](int count) { return hours.of(count, Language::polish); };
    EXPECT_EQ(polish(1), "1 godzinę");
    for (const int few : {2, 3, 4, 22, 34, 102})
        EXPECT_EQ(polish(few), std::to_string(few) + " godziny");
    for (const int many : {0, 5, 11, 12, 13, 14, 21, 25, 101, 112})
        EXPECT_EQ(polish(many), std::to_string(many) + " godzin");
    EXPECT_EQ(hours.of(1, Language::english), "1 hour");
    EXPECT_EQ(hours.of(21, Language::english), "21 hours");
}

TEST(LanguageTest, fillsTheSamePlacesInBothLanguages) {
    constexpr Bilingual text{"plik {}: {}", "file {}: {}"};
    EXPECT_EQ(filled(Language::polish, text, "a", 2), "plik a: 2");
    EXPECT_EQ(filled(Language::english, text, "a", 2), "file a: 2");
}

}  // namespace
}  // namespace orv::companion
