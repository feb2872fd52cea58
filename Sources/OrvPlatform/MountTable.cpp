#include "OrvPlatform/MountTable.h"

#include <algorithm>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

bool isOctalDigit(char c) {
    return c >= '0' && c <= '7';
}

std::string withoutOctalEscapes(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '\\' && i + 3 < text.size() && isOctalDigit(text[i + 1]) &&
                              isOctalDigit(text[i + 2]) && isOctalDigit(text[i + 3]);
        if (!isEscape) {
            result.push_back(text[i]);
            continue;
        }
        const int code = (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
        result.push_back(static_cast<char>(code));
        i += 3;
    }
    return result;
}

std::vector<std::string_view> wordsOf(std::string_view line) {
    std::vector<std::string_view> words;
    while (!line.empty()) {
        const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
        if (end > 0) words.push_back(line.substr(0, end));
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return words;
}

}  // namespace

std::vector<MountEntry> parseMounts(std::string_view table) {
    std::vector<MountEntry> entries;
    for (const std::string_view line : linesOf(table)) {
        const std::vector<std::string_view> words = wordsOf(line);
        if (words.size() < 3) continue;
        entries.push_back(
            {withoutOctalEscapes(words[0]), withoutOctalEscapes(words[1]), std::string(words[2])});
    }
    return entries;
}

}  // namespace orv
