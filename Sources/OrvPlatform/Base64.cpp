#include "OrvPlatform/Base64.h"

#include <array>
#include <cstdint>

#include <openssl/evp.h>

namespace orv {

namespace {

constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> digitValues() {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}

constexpr std::array<std::int8_t, 256> digits = digitValues();

int digit(char c) {
    return digits[static_cast<unsigned char>(c)];
}

std::size_t paddingOf(std::string_view text) {
    if (text.ends_with("==")) return 2;
    return text.ends_with('=') ? 1 : 0;
}

// The library's decoder forgives blanks and unused bits; strictness is ours.
bool isStrict(std::string_view text, std::size_t padding) {
    if (text.size() % 4 != 0) return false;
    const std::string_view significant = text.substr(0, text.size() - padding);
    for (const char c : significant) {
        if (digit(c) < 0) return false;
    }
    if (padding == 1) return (digit(significant.back()) & 0x03) == 0;
    if (padding == 2) return (digit(significant.back()) & 0x0f) == 0;
    return true;
}

}  // namespace

std::size_t base64EncodedSize(std::size_t byteCount) {
    return (byteCount + 2) / 3 * 4;
}

void appendBase64(std::string& out, std::string_view bytes) {
    const std::size_t begin = out.size();
    // The library ends what it writes with a NUL.
    out.resize(begin + base64EncodedSize(bytes.size()) + 1);
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data() + begin),
                    reinterpret_cast<const unsigned char*>(bytes.data()),
                    static_cast<int>(bytes.size()));
    out.pop_back();
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.empty()) return std::string();
    const std::size_t padding = paddingOf(text);
    if (!isStrict(text, padding)) return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int decoded = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                        reinterpret_cast<const unsigned char*>(text.data()),
                                        static_cast<int>(text.size()));
    if (decoded < 0) return std::nullopt;
    bytes.resize(bytes.size() - padding);
    return bytes;
}

}  // namespace orv
