#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utf8proc.h>

#include "OrvPlatform/Text.h"

// Texts are compared letter by letter, each a base weight and the marks on it. The first difference
// of bases decides; if there is none, the first difference of marks; if there is none, the bytes.
// Without tables of a language this is close to what the Mac shows, and the same on every machine.

namespace orv {

namespace {

using Weight = std::uint32_t;

constexpr Weight nothing = 0;   // the end of the text
constexpr Weight markOnly = 1;  // marks at the text's beginning, with no letter to stand on
constexpr Weight firstPunctuation = 1U << 24;
constexpr Weight firstSymbol = 2U << 24;
constexpr Weight firstDigit = 3U << 24;
constexpr Weight firstLetter = 4U << 24;
constexpr Weight firstInvalidByte = 5U << 24;

/// Punctuation, symbols, digits, letters, as people expect them; case does not count.
constexpr std::array<Weight, 128> asciiWeights() {
    constexpr std::string_view punctuation = " _-,;:!?.'\"()[]{}@*/\\&#%";
    constexpr std::string_view symbols = "`^+<=>|~$";
    std::array<Weight, 128> weights{};
    for (Weight c = 0; c < 128; ++c)
        weights[c] = 2 + c;  // control characters come first
    for (Weight i = 0; i < punctuation.size(); ++i) {
        weights[static_cast<unsigned char>(punctuation[i])] = firstPunctuation + i;
    }
    for (Weight i = 0; i < symbols.size(); ++i) {
        weights[static_cast<unsigned char>(symbols[i])] = firstSymbol + i;
    }
    for (Weight i = 0; i < 10; ++i)
        weights['0' + i] = firstDigit + i;
    for (Weight i = 0; i < 26; ++i)
        weights['a' + i] = weights['A' + i] = firstLetter + i;
    return weights;
}

constexpr std::array<Weight, 128> asciiWeight = asciiWeights();

Weight weightOf(utf8proc_int32_t codePoint) {
    const auto value = static_cast<Weight>(codePoint);
    if (value < asciiWeight.size()) return asciiWeight[value];
    switch (utf8proc_category(codePoint)) {
        case UTF8PROC_CATEGORY_PC:
        case UTF8PROC_CATEGORY_PD:
        case UTF8PROC_CATEGORY_PS:
        case UTF8PROC_CATEGORY_PE:
        case UTF8PROC_CATEGORY_PI:
        case UTF8PROC_CATEGORY_PF:
        case UTF8PROC_CATEGORY_PO:
        case UTF8PROC_CATEGORY_ZS:
        case UTF8PROC_CATEGORY_ZL:
        case UTF8PROC_CATEGORY_ZP: return firstPunctuation + value;
        case UTF8PROC_CATEGORY_SM:
        case UTF8PROC_CATEGORY_SC:
        case UTF8PROC_CATEGORY_SK:
        case UTF8PROC_CATEGORY_SO: return firstSymbol + value;
        case UTF8PROC_CATEGORY_ND:
        case UTF8PROC_CATEGORY_NL:
        case UTF8PROC_CATEGORY_NO: return firstDigit + value;
        default: return firstLetter + value;
    }
}

/// Letters that Unicode does not decompose although people file them beside another.
std::string_view lettersBeside(utf8proc_int32_t codePoint) {
    switch (codePoint) {
        case 0x00E6: return "ae";  // æ
        case 0x00F0: return "d";   // ð
        case 0x00F8: return "o";   // ø
        case 0x00FE: return "th";  // þ
        case 0x0111: return "d";   // đ
        case 0x0127: return "h";   // ħ
        case 0x0131: return "i";   // ı
        case 0x0142: return "l";   // ł
        case 0x0153: return "oe";  // œ
        case 0x0167: return "t";   // ŧ
        default: return {};
    }
}

bool isMark(utf8proc_int32_t codePoint) {
    return codePoint >= 0x80 && utf8proc_get_property(codePoint)->combining_class != 0;
}

struct Letter {
    Weight base = nothing;
    std::u32string marks;
};

/// Takes a text apart, folded and decomposed, without ever holding all of it.
class LetterReader {
public:
    explicit LetterReader(std::string_view text) : rest(text) {}

    void next(Letter& letter) {
        letter.marks.clear();
        const bool atStart = pendingBegin == pendingEnd && !started;
        started = true;
        if (isPlain(0) && (rest.size() == 1 || isPlain(1)) && pendingBegin == pendingEnd) {
            letter.base = asciiWeight[static_cast<unsigned char>(rest.front())];
            rest.remove_prefix(1);
            return;
        }
        letter.base = nothing;
        if (!refill()) return;
        letter.base = atStart && pending[pendingBegin].isMark ? markOnly : take().value;
        while (refill() && pending[pendingBegin].isMark)
            letter.marks.push_back(take().value);
    }

private:
    struct Piece {
        Weight value = 0;  // a base's weight, or the mark itself
        bool isMark = false;
    };

    bool isPlain(std::size_t index) const {
        return index < rest.size() && static_cast<unsigned char>(rest[index]) < 0x80;
    }

    Piece take() { return pending[pendingBegin++]; }

    void put(Weight value, bool isMark) { pending[pendingEnd++] = {value, isMark}; }

    /// Whether a piece is pending; reads on when none is. Some characters have none.
    bool refill() {
        while (pendingBegin == pendingEnd && !rest.empty())
            decompose();
        return pendingBegin != pendingEnd;
    }

    void decompose() {
        pendingBegin = pendingEnd = 0;
        utf8proc_int32_t codePoint = 0;
        const auto available = static_cast<utf8proc_ssize_t>(std::min<std::size_t>(rest.size(), 4));
        const utf8proc_ssize_t size = utf8proc_iterate(
            reinterpret_cast<const utf8proc_uint8_t*>(rest.data()), available, &codePoint);
        if (size <= 0) {
            put(firstInvalidByte + static_cast<unsigned char>(rest.front()), false);
            rest.remove_prefix(1);
            return;
        }
        rest.remove_prefix(static_cast<std::size_t>(size));
        constexpr auto options = static_cast<utf8proc_option_t>(
            UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
        std::array<utf8proc_int32_t, maximumDecomposition> parts{};
        int boundClass = 0;
        const utf8proc_ssize_t count = utf8proc_decompose_char(
            codePoint, parts.data(), maximumDecomposition, options, &boundClass);
        for (utf8proc_ssize_t i = 0; i < std::min<utf8proc_ssize_t>(count, maximumDecomposition);
             ++i) {
            putFolded(parts[static_cast<std::size_t>(i)]);
        }
    }

    void putFolded(utf8proc_int32_t codePoint) {
        const std::string_view beside = lettersBeside(codePoint);
        for (const char base : beside)
            put(weightOf(base), false);
        if (!beside.empty()) {
            put(static_cast<Weight>(codePoint), true);
        } else if (isMark(codePoint)) {
            put(static_cast<Weight>(codePoint), true);
        } else {
            put(weightOf(codePoint), false);
        }
    }

    static constexpr std::size_t maximumDecomposition = 32;  // Unicode's longest has 18

    std::string_view rest;
    bool started = false;
    std::array<Piece, maximumDecomposition * 3> pending{};
    std::size_t pendingBegin = 0;
    std::size_t pendingEnd = 0;
};

/// Where the texts' first difference in a letter can begin: at the last ASCII character before
/// their first different byte, for only letters beyond ASCII reach further back.
std::size_t firstLetterToCompare(std::string_view a, std::string_view b) {
    const auto [endA, endB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    auto position = static_cast<std::size_t>(endA - a.begin());
    while (position > 0 && static_cast<unsigned char>(a[--position]) >= 0x80) {
    }
    return position;
}

/// Whether the text begins with an ASCII character on which no mark can stand.
bool beginsPlainly(std::string_view text) {
    return !text.empty() && static_cast<unsigned char>(text[0]) < 0x80 &&
           (text.size() == 1 || static_cast<unsigned char>(text[1]) < 0x80);
}

}  // namespace

int compareLocalized(std::string_view a, std::string_view b) {
    const std::size_t begin = firstLetterToCompare(a, b);
    std::string_view restA = a.substr(begin);
    std::string_view restB = b.substr(begin);
    while (beginsPlainly(restA) && beginsPlainly(restB)) {
        const Weight weightA = asciiWeight[static_cast<unsigned char>(restA.front())];
        const Weight weightB = asciiWeight[static_cast<unsigned char>(restB.front())];
        if (weightA != weightB) return weightA < weightB ? -1 : 1;
        restA.remove_prefix(1);
        restB.remove_prefix(1);
    }
    LetterReader readerA(restA);
    LetterReader readerB(restB);
    Letter letterA;
    Letter letterB;
    int marks = 0;
    do {
        readerA.next(letterA);
        readerB.next(letterB);
        if (letterA.base != letterB.base) return letterA.base < letterB.base ? -1 : 1;
        if (marks == 0) marks = letterA.marks.compare(letterB.marks);
    } while (letterA.base != nothing);
    return marks != 0 ? marks : a.compare(b);
}

}  // namespace orv
