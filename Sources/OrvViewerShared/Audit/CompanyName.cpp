#include "OrvViewerShared/Audit/CompanyName.h"

#include <algorithm>
#include <array>
#include <utility>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

constexpr std::size_t firstTooLong = 256;  // characters

using Names = std::pair<std::string_view, std::string_view>;

constexpr std::array<Names, 18> companiesByIdentifier = {{
    {"com.apple.", "Apple Inc."},
    {"com.microsoft.", "Microsoft Corporation"},
    {"com.google.", "Google LLC"},
    {"com.adobe.", "Adobe Inc."},
    {"org.mozilla.", "Mozilla"},
    {"com.teamviewer.", "TeamViewer Germany GmbH"},
    {"com.synology.", "Synology Inc."},
    {"com.elgato.", "Elgato"},
    {"com.parallels.", "Parallels International GmbH"},
    {"com.vmware.", "VMware"},
    {"com.jetbrains.", "JetBrains"},
    {"com.docker.", "Docker Inc."},
    {"com.spotify.", "Spotify"},
    {"us.zoom.", "Zoom Video Communications"},
    {"com.rustdesk.", "RustDesk"},
    {"com.figma.", "Figma"},
    {"com.getdropbox.", "Dropbox"},
    {"com.valvesoftware.", "Valve Corporation"},
}};

constexpr std::array<std::string_view, 5> developerLabels = {
    "Developer ID Application:", "3rd Party Mac Developer Application:", "Apple Distribution:",
    "Developer ID Installer:", "Mac Developer:"};

const std::string_view* developerLabelOf(std::string_view authority) {
    return std::find_if(developerLabels.begin(), developerLabels.end(),
                        [&](std::string_view label) { return authority.starts_with(label); });
}

/// Trims white space and the given ASCII characters in any mixture.
std::string trimmedOf(std::string_view text, std::string_view characters) {
    std::string result = trimmed(text);
    for (;;) {
        const std::size_t begin = result.find_first_not_of(characters);
        if (begin == std::string::npos) return {};
        const std::size_t end = result.find_last_not_of(characters) + 1;
        if (begin == 0 && end == result.size()) return result;
        result = trimmed(std::string_view(result).substr(begin, end - begin));
    }
}

bool beginsWithIgnoringCase(std::string_view text, std::string_view asciiPrefix) {
    return text.size() >= asciiPrefix.size() &&
           equalsIgnoringCase(text.substr(0, asciiPrefix.size()), asciiPrefix);
}

/// Letters and digits; every byte beyond ASCII counts as part of a letter.
bool isWordByte(char c) {
    return isAsciiDigit(c) || isAsciiLetter(c) || !isAscii(c);
}

std::size_t digitsAt(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isAsciiDigit) -
                                    text.begin());
}

std::size_t yearAt(std::string_view text) {
    const bool isYear = digitsAt(text) == 4 && (text.starts_with("19") || text.starts_with("20"));
    return isYear ? 4 : 0;
}

/// The length of a range's rest at the text's beginning: " - 2024", "–2024" or "-24"; 0 for none.
std::size_t rangeEndAt(std::string_view text) {
    const auto blanksAt = [&](std::size_t at) {
        const std::size_t end = text.find_first_not_of(' ', at);
        return (end == std::string_view::npos ? text.size() : end) - at;
    };
    std::size_t at = blanksAt(0);
    std::size_t dash = 0;
    for (const std::string_view candidate : {"-", "–", "—"}) {
        if (text.substr(at).starts_with(candidate)) dash = candidate.size();
    }
    if (dash == 0) return 0;
    at += dash;
    at += blanksAt(at);
    const std::string_view rest = text.substr(at);
    const std::size_t digits = digitsAt(rest);
    return digits == 2 || yearAt(rest) == 4 ? at + digits : 0;
}

/// How much at the text's beginning is a mark, the word "Copyright" or a year (with its range),
/// none of which belong to a name.
std::size_t copyrightWordAt(std::string_view text, bool isWordStart) {
    for (const std::string_view mark : {"©", "℗", "(c)", "(C)"}) {
        if (text.starts_with(mark)) return mark.size();
    }
    if (!isWordStart) return 0;
    constexpr std::string_view word = "Copyright";
    if (beginsWithIgnoringCase(text, word) &&
        (text.size() == word.size() || !isWordByte(text[word.size()]) ||
         text.substr(word.size()).starts_with("©"))) {
        return word.size();
    }
    const std::size_t year = yearAt(text);
    return year == 0 ? 0 : year + rangeEndAt(text.substr(year));
}

/// Each removed piece leaves one blank; runs of white space become one blank.
std::string withoutCopyrightWords(std::string_view text) {
    std::string result;
    const auto addBlank = [&] {
        if (!result.empty() && result.back() != ' ') result.push_back(' ');
    };
    bool isWordStart = true;
    while (!text.empty()) {
        const std::size_t removed = copyrightWordAt(text, isWordStart);
        if (removed > 0 || text.front() == ' ' || (text.front() >= '\t' && text.front() <= '\r')) {
            addBlank();
            isWordStart = true;
        } else {
            result.push_back(text.front());
            isWordStart = !isWordByte(text.front());
        }
        text.remove_prefix(std::max<std::size_t>(removed, 1));
    }
    return result;
}

std::string_view beforeRightsReserved(std::string_view text) {
    constexpr std::string_view phrase = "all rights reserved";
    for (std::size_t at = 0; at + phrase.size() <= text.size(); ++at) {
        if (beginsWithIgnoringCase(text.substr(at), phrase)) return text.substr(0, at);
    }
    return text;
}

/// A list's quoted text. Letters beyond ASCII come as \U017b; apart from the upper case the
/// escapes are JSON's.
std::string unquoted(std::string_view element) {
    if (element.size() < 2 || !element.starts_with('"') || !element.ends_with('"')) {
        return std::string(element);
    }
    std::string escaped(element);
    for (std::size_t at = escaped.find('\\'); at != std::string::npos && at + 1 < escaped.size();
         at = escaped.find('\\', at + 2)) {
        if (escaped[at + 1] == 'U') escaped[at + 1] = 'u';
    }
    const Json text = Json::parse(escaped, nullptr, false);
    return text.is_string() ? text.get<std::string>()
                            : std::string(element.substr(1, element.size() - 2));
}

/// The texts of a list: one a line, followed by a comma except for the last.
void appendListElements(std::string_view list, std::vector<std::string>& values) {
    for (const std::string_view line : linesOf(list)) {
        std::string element = trimmed(line);
        if (element == "(" || element == ")" || element.empty()) continue;
        if (element.ends_with(',')) element.pop_back();
        values.push_back(unquoted(element));
    }
}

}  // namespace

std::optional<std::string> normalizedCompanyName(std::string_view text) {
    if (trimmed(text) == "(null)") return std::nullopt;
    std::string name = trimmedOf(text, "'\"()[]{}");
    if (name.empty() || equalsIgnoringCase(name, "unknown")) return std::nullopt;
    if (characterCount(name) >= firstTooLong) return std::nullopt;
    return name;
}

std::optional<std::string> companyNameFromCopyright(std::string_view text) {
    constexpr std::string_view around = "[]{}.,;:-";
    constexpr std::string_view by = "by ";
    const std::string words = withoutCopyrightWords(beforeRightsReserved(text));
    std::string name = trimmedOf(words, around);
    if (beginsWithIgnoringCase(name, by)) {
        name = trimmedOf(std::string_view(name).substr(by.size()), around);
    }
    return normalizedCompanyName(name);
}

std::optional<std::string> companyNameFromSigningAuthority(std::string_view authority) {
    const auto* label = developerLabelOf(authority);
    if (label != developerLabels.end()) authority.remove_prefix(label->size());
    const std::size_t teamIdentifier = authority.rfind(" (");
    return normalizedCompanyName(authority.substr(0, teamIdentifier));
}

std::optional<std::string> publisherFromBundleIdentifier(std::string_view bundleIdentifier) {
    for (const auto& [prefix, company] : companiesByIdentifier) {
        if (beginsWithIgnoringCase(bundleIdentifier, prefix)) return std::string(company);
    }
    return std::nullopt;
}

std::optional<std::string> cleanSpotlightValue(std::string_view value) {
    std::string cleaned = trimmed(value);
    if (cleaned.empty() || cleaned == "(null)" || cleaned == "null" ||
        cleaned.find("<null>") != std::string::npos) {
        return std::nullopt;
    }
    return cleaned;
}

std::vector<std::string> spotlightValues(std::string_view answer) {
    std::vector<std::string> values;
    for (std::size_t begin = 0; begin <= answer.size();) {
        const std::size_t end = std::min(answer.find('\0', begin), answer.size());
        std::string value = trimmed(answer.substr(begin, end - begin));
        if (value.starts_with("(\n") && value.ends_with(')')) {
            appendListElements(value, values);
        } else {
            values.push_back(std::move(value));
        }
        begin = end + 1;
    }
    return values;
}

std::optional<std::string> firstSigningAuthority(std::string_view answer) {
    constexpr std::string_view label = "Authority=";
    for (const std::string_view line : linesOf(answer)) {
        const std::string text = trimmed(line);
        if (text.starts_with(label)) return text.substr(label.size());
    }
    return std::nullopt;
}

std::optional<std::string> companyOfSignature(std::string_view authority,
                                              std::string_view bundleIdentifier) {
    const bool namesDeveloper = developerLabelOf(authority) != developerLabels.end();
    if (authority.starts_with("Apple ") && !namesDeveloper) {
        if (!bundleIdentifier.starts_with("com.apple.")) return std::nullopt;
        return "Apple Inc.";
    }
    return companyNameFromSigningAuthority(authority);
}

}  // namespace orv
