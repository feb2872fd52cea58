#include "WsparoCompanion/Language.h"

namespace orv::companion {

namespace {

const char* polishForm(const CountedNoun& noun, std::int64_t count) {
    if (count == 1) return noun.polishOne;
    const std::int64_t units = count % 10;
    const std::int64_t tens = count / 10 % 10;
    return units >= 2 && units <= 4 && tens != 1 ? noun.polishFew : noun.polishMany;
}

}  // namespace

Language languageOf(const Environment& environment) {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const std::optional<std::string> locale = environment(name);
        if (!locale || locale->empty()) continue;
        const std::string language = locale->substr(0, locale->find_first_of("_.@-"));
        return language == "en" ? Language::english : Language::polish;
    }
    return Language::polish;
}

std::string CountedNoun::of(std::int64_t count, Language language) const {
    const char* form = polishForm(*this, count);
    if (language == Language::english) form = count == 1 ? englishOne : englishMany;
    return fmt::format("{} {}", count, form);
}

}  // namespace orv::companion
