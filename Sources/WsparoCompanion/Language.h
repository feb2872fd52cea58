#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

namespace orv::companion {

/// A variable of the process's environment; nothing when it is not set.
using Environment = std::function<std::optional<std::string>(const char* name)>;

enum class Language { polish, english };

/// English when the locale for messages (LC_ALL, LC_MESSAGES, LANG: the first that is set and not
/// empty) is an English one, else Polish.
Language languageOf(const Environment& environment);

/// A text for people in both languages. Compiles only when both have as many places to fill in.
struct Bilingual {
    consteval Bilingual(const char* inPolish, const char* inEnglish)
        : polish(inPolish), english(inEnglish) {
        if (places(inPolish) != places(inEnglish)) throw "the languages differ in their places";
    }

    const char* in(Language language) const {
        return language == Language::polish ? polish : english;
    }

    const char* polish;
    const char* english;

private:
    static consteval int places(std::string_view text) {
        int count = 0;
        for (std::size_t at = 0; (at = text.find("{}", at)) != std::string_view::npos; at += 2)
            ++count;
        return count;
    }
};

/// The text in one language with its places ("{}") filled in.
template <typename... Values>
std::string filled(Language language, Bilingual text, const Values&... values) {
    return fmt::format(fmt::runtime(text.in(language)), values...);
}

/// How a number's noun is written: "1 minutę", "2 minuty", "5 minut", "12 minut", "22 minuty".
/// English has two forms.
struct CountedNoun {
    const char* polishOne;
    const char* polishFew;
    const char* polishMany;
    const char* englishOne;
    const char* englishMany;

    /// With the number in front.
    std::string of(std::int64_t count, Language language) const;
};

}  // namespace orv::companion
