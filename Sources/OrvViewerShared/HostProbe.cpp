#include "OrvViewerShared/HostProbe.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

constexpr std::string_view digits = "0123456789";

/// What follows a label; nothing when it does not occur.
std::optional<std::string_view> after(std::string_view text, std::string_view label) {
    const std::size_t found = text.find(label);
    if (found == std::string_view::npos) return std::nullopt;
    return text.substr(found + label.size());
}

std::string_view firstWord(std::string_view text) {
    return text.substr(0, text.find_first_of(" \t\r\n"));
}

/// "a" as "0a"; empty for what is no group of one or two hexadecimal digits.
std::string paddedGroup(std::string_view group) {
    const bool isHexadecimal = !group.empty() && group.size() <= 2 &&
                               std::all_of(group.begin(), group.end(),
                                           [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (!isHexadecimal) return {};
    std::string padded(2 - group.size(), '0');
    return padded + lowercased(group);
}

}  // namespace

std::optional<double> parsePingLatency(std::string_view pingOutput) {
    const auto rest = after(pingOutput, "time=");
    if (!rest) return std::nullopt;
    std::string number(rest->substr(0, rest->find_first_not_of("0123456789.,")));
    std::replace(number.begin(), number.end(), ',', '.');
    if (number.find_first_of(digits) == std::string::npos) return std::nullopt;
    // The program keeps the "C" locale, in which the point is the decimal separator.
    return std::strtod(number.c_str(), nullptr);
}

std::optional<std::string> parseHardwareAddress(std::string_view arpOutput) {
    const auto rest = after(arpOutput, " at ");
    if (!rest) return std::nullopt;
    std::string_view word = firstWord(*rest);
    std::string address;
    int groups = 0;
    for (;; ++groups) {
        const std::size_t colon = word.find(':');
        const std::string group = paddedGroup(word.substr(0, colon));
        if (group.empty()) return std::nullopt;
        address += (groups == 0 ? "" : ":") + group;
        if (colon == std::string_view::npos) break;
        word.remove_prefix(colon + 1);
    }
    if (groups != 5) return std::nullopt;
    return address;
}

std::optional<std::string> parseHostName(std::string_view lookupOutput) {
    for (const std::string_view line : linesOf(lookupOutput)) {
        const auto rest = after(line, "name: ");
        if (!rest) continue;
        std::string name = trimmed(*rest);
        if (name.empty()) return std::nullopt;
        return name;
    }
    return std::nullopt;
}

}  // namespace orv
