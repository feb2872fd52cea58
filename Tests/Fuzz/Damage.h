#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace orv::fuzz {

/// Damages a text in a way that its number decides, the same on every machine: bytes flipped,
/// replaced, dropped, doubled, or taken from another text.
class Damage {
public:
    explicit Damage(std::uint32_t number) : random(number) {}

    std::string apply(std::string text, std::string_view other) {
        for (std::uint32_t changes = below(4) + 1; changes > 0; --changes)
            change(text, other);
        return text;
    }

private:
    std::uint32_t below(std::size_t end) { return random() % static_cast<std::uint32_t>(end); }

    void change(std::string& text, std::string_view other) {
        // Those that parsers give a meaning.
        constexpr std::string_view marked("\0\xff\x80\n\r\"\\<>&{}[]:,.-+%#/@=0 eE9\xc3", 30);
        const std::size_t at = below(text.size() + 1);
        const std::size_t length = below(std::min<std::size_t>(text.size() - at, 40) + 1);
        switch (below(6)) {
            case 0:
                if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1U << below(8)));
                break;
            case 1: text.insert(at, 1, marked[below(marked.size())]); break;
            case 2: text.erase(at, length); break;
            case 3: text.insert(at, std::string(text, at, length)); break;
            case 4: text.resize(at); break;
            default:
                if (!other.empty()) text.replace(at, length, other.substr(below(other.size()), 40));
        }
    }

    std::mt19937 random;
};

}  // namespace orv::fuzz
