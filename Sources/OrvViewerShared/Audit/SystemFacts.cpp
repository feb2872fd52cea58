#include "OrvViewerShared/Audit/SystemFacts.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/PropertyList.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

std::string_view withoutLeadingBlanks(std::string_view text) {
    while (text.starts_with(' ') || text.starts_with('\t'))
        text.remove_prefix(1);
    return text;
}

}  // namespace

std::optional<std::int64_t> firstMatchInteger(std::string_view text, std::string_view label) {
    const std::size_t found = text.find(label);
    if (found == std::string_view::npos) return std::nullopt;
    text.remove_prefix(found + label.size());
    const auto* begin = std::find_if(text.data(), text.data() + text.size(), isAsciiDigit);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(begin, text.data() + text.size(), number);
    if (end == begin || error != std::errc()) return std::nullopt;
    return number;
}

std::string sysctlValue(std::string_view answer, std::string_view key) {
    for (std::string_view line : linesOf(answer)) {
        if (!line.starts_with(key)) continue;
        line = withoutLeadingBlanks(line.substr(key.size()));
        if (line.starts_with(':') || line.starts_with('=')) return trimmed(line.substr(1));
    }
    return {};
}

std::optional<WallTime> parseBootTime(std::string_view answer) {
    const std::optional<std::int64_t> seconds = firstMatchInteger(answer, "sec = ");
    constexpr auto latest =
        std::chrono::duration_cast<std::chrono::seconds>(WallTime::duration::max()).count();
    if (!seconds || *seconds <= 0 || *seconds > latest) return std::nullopt;
    return WallTime(std::chrono::seconds(*seconds));
}

std::int64_t uptimeSeconds(std::optional<WallTime> bootTime, WallTime now) {
    if (!bootTime || *bootTime >= now) return 0;
    return std::chrono::duration_cast<std::chrono::seconds>(now - *bootTime).count();
}

std::optional<std::int64_t> memoryUsage(std::string_view answer) {
    const std::optional<std::int64_t> pageSize = firstMatchInteger(answer, "page size of ");
    if (!pageSize) return std::nullopt;
    std::int64_t bytes = 0;
    for (const char* label : {"Pages active", "Pages wired down", "Pages occupied by compressor"}) {
        std::int64_t part = 0;
        const std::int64_t pages = firstMatchInteger(answer, label).value_or(0);
        if (__builtin_mul_overflow(pages, *pageSize, &part) ||
            __builtin_add_overflow(bytes, part, &bytes)) {
            return std::nullopt;
        }
    }
    return bytes;
}

double cpuLoadPercent(std::optional<double> oneMinuteLoad, unsigned activeProcessors) {
    if (!oneMinuteLoad || !std::isfinite(*oneMinuteLoad)) return 0;
    const double percent = *oneMinuteLoad / std::max(activeProcessors, 1U) * 100;
    return std::clamp(std::round(percent * 10) / 10, 0.0, 100.0);
}

std::vector<std::string> macAddresses(std::string_view answer) {
    constexpr std::string_view label = "ether ";
    std::vector<std::string> addresses;
    for (std::size_t at = answer.find(label); at != std::string_view::npos;
         at = answer.find(label, at)) {
        at += label.size();
        const std::size_t begin = answer.find_first_not_of(' ', at);
        if (begin == std::string_view::npos) break;
        const std::size_t end = std::min(answer.find_first_of(" \t\r\n", begin), answer.size());
        const std::string word(answer.substr(begin, end - begin));
        if (!word.empty() && std::find(addresses.begin(), addresses.end(), word) == addresses.end())
            addresses.push_back(word);
    }
    return addresses;
}

std::string osBuild(const SystemRoot& root) {
    constexpr std::uint64_t limitBytes = 65536;
    try {
        const std::string path = root.locate("/System/Library/CoreServices/SystemVersion.plist");
        const Json version = parsePropertyList(readFile(path, limitBytes));
        return textIfPresent(version, "ProductBuildVersion").value_or("");
    } catch (const FileError&) {
        return {};
    } catch (const DecodingError&) {
        return {};
    }
}

}  // namespace orv
