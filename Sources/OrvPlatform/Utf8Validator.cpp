#include "OrvPlatform/Utf8Validator.h"

#include <array>
#include <cstring>

namespace orv {

namespace {

/// What may come next, with the restrictions that some lead bytes put on the byte behind them.
enum State : unsigned {
    betweenCharacters,
    afterBadByte,
    oneMissing,
    twoMissing,
    threeMissing,
    afterE0,  // shorter forms exist below A0
    afterED,  // surrogates from A0
    afterF0,  // shorter forms exist below 90
    afterF4,  // beyond U+10FFFF from 90
    stateCount
};

constexpr State afterFirst(unsigned byte) {
    if (byte <= 0x7F) return betweenCharacters;
    if (byte >= 0xC2 && byte <= 0xDF) return oneMissing;
    if (byte == 0xE0) return afterE0;
    if (byte == 0xED) return afterED;
    if (byte >= 0xE1 && byte <= 0xEF) return twoMissing;
    if (byte == 0xF0) return afterF0;
    if (byte == 0xF4) return afterF4;
    if (byte >= 0xF1 && byte <= 0xF3) return threeMissing;
    return afterBadByte;
}

constexpr State within(unsigned byte, unsigned lowest, unsigned highest, State next) {
    return byte >= lowest && byte <= highest ? next : afterBadByte;
}

constexpr State following(State state, unsigned byte) {
    switch (state) {
        case betweenCharacters: return afterFirst(byte);
        case oneMissing: return within(byte, 0x80, 0xBF, betweenCharacters);
        case twoMissing: return within(byte, 0x80, 0xBF, oneMissing);
        case threeMissing: return within(byte, 0x80, 0xBF, twoMissing);
        case afterE0: return within(byte, 0xA0, 0xBF, oneMissing);
        case afterED: return within(byte, 0x80, 0x9F, oneMissing);
        case afterF0: return within(byte, 0x90, 0xBF, twoMissing);
        case afterF4: return within(byte, 0x80, 0x8F, twoMissing);
        default: return afterBadByte;
    }
}

// A state is the place of its six bits in a byte's word; those bits are the place of the next
// state's. So one shift is one step, without a branch and without waiting for a look-up that
// depends on the step before.
constexpr unsigned bitsPerState = 6;
static_assert(stateCount * bitsPerState <= 64);

constexpr std::uint64_t placeOf(State state) {
    return std::uint64_t{state} * bitsPerState;
}

constexpr std::array<std::uint64_t, 256> makeSteps() {
    std::array<std::uint64_t, 256> steps{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        for (unsigned state = 0; state < stateCount; ++state) {
            const State next = following(static_cast<State>(state), byte);
            steps[byte] |= placeOf(next) << placeOf(static_cast<State>(state));
        }
    }
    return steps;
}

constexpr std::array<std::uint64_t, 256> steps = makeSteps();
constexpr std::uint64_t placeBits = 63;

std::uint64_t step(std::uint64_t state, char byte) {
    return steps[static_cast<unsigned char>(byte)] >> (state & placeBits);
}

constexpr std::size_t blockSize = 64;

/// Of the block at the front.
bool isAsciiBlock(std::string_view bytes) {
    std::array<std::uint64_t, blockSize / 8> words;
    std::memcpy(words.data(), bytes.data(), blockSize);
    std::uint64_t all = 0;
    for (const std::uint64_t word : words)
        all |= word;
    return (all & 0x8080808080808080) == 0;
}

bool isContinuation(char byte) {
    return (byte & 0xC0) == 0x80;
}

}  // namespace

bool Utf8Validator::feed(std::string_view bytes) {
    std::string_view rest = bytes;
    for (; rest.size() >= blockSize; rest.remove_prefix(blockSize)) {
        const bool isBetween = (state & placeBits) == placeOf(betweenCharacters);
        if (isBetween && isAsciiBlock(rest)) continue;
        for (std::size_t i = 0; i < blockSize; ++i)
            state = step(state, rest[i]);
    }
    for (const char byte : rest)
        state = step(state, byte);

    if (!isValid() || (state & placeBits) == placeOf(betweenCharacters)) {
        incomplete = 0;
        return isValid();
    }
    std::size_t begun = 0;
    while (begun < bytes.size() && isContinuation(bytes[bytes.size() - 1 - begun]))
        ++begun;
    // The lead byte is in this piece, or came before with what was incomplete then.
    incomplete = begun < bytes.size() ? begun + 1 : incomplete + begun;
    return true;
}

bool Utf8Validator::isValid() const {
    return (state & placeBits) != placeOf(afterBadByte);
}

}  // namespace orv
