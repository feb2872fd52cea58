#include "OrvViewerShared/Audit/Battery.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/SystemFacts.h"

namespace orv {

namespace {

constexpr std::string_view internalBattery = "InternalBattery";

std::vector<std::string> fieldsOf(std::string_view text) {
    std::vector<std::string> fields;
    for (;;) {
        const std::size_t end = text.find(';');
        fields.push_back(trimmed(text.substr(0, end)));
        if (end == std::string_view::npos) return fields;
        text.remove_prefix(end + 1);
    }
}

/// The digits before the first "%".
std::optional<std::int64_t> percentIn(std::string_view text) {
    const std::size_t sign = text.find('%');
    if (sign == std::string_view::npos) return std::nullopt;
    const std::size_t before = text.substr(0, sign).find_last_not_of("0123456789");
    const std::size_t begin = before == std::string_view::npos ? 0 : before + 1;
    const auto percent = firstMatchInteger(text.substr(begin, sign - begin), "");
    return percent && *percent <= 100 ? percent : std::nullopt;
}

bool isKnownState(std::string_view state) {
    constexpr std::array<std::string_view, 5> states = {"charging", "discharging", "charged",
                                                        "finishing charge", "AC attached"};
    return std::find(states.begin(), states.end(), state) != states.end();
}

/// "3:12" of "3:12 remaining present: true"; nothing for "(no estimate)".
std::optional<std::string> timeRemainingIn(std::string_view field) {
    const std::size_t end = field.find(" remaining");
    if (end == std::string_view::npos || end == 0) return std::nullopt;
    const std::string_view time = field.substr(0, end);
    const bool isTime = time.find(':') != std::string_view::npos &&
                        time.find_first_not_of("0123456789:") == std::string_view::npos;
    return isTime ? std::optional<std::string>(time) : std::nullopt;
}

std::optional<std::string_view> internalBatteryLine(std::string_view answer) {
    for (const std::string_view line : linesOf(answer)) {
        if (line.find(internalBattery) != std::string_view::npos) return line;
    }
    return std::nullopt;
}

}  // namespace

bool hasBattery(std::string_view answer) {
    return answer.find(internalBattery) != std::string_view::npos;
}

Json batteryObject(std::string_view answer) {
    Json battery = {{"source", "pmset"}};
    if (answer.empty()) return battery;
    const std::optional<std::string_view> line = internalBatteryLine(answer);
    battery["present"] = line && line->find("present: false") == std::string_view::npos;
    if (!line) return battery;
    const std::vector<std::string> fields = fieldsOf(*line);
    if (const auto percent = percentIn(fields[0])) battery["percent"] = *percent;
    if (fields.size() > 1 && isKnownState(fields[1])) battery["state"] = fields[1];
    for (const std::string& field : fields) {
        if (const auto time = timeRemainingIn(field)) battery["time_remaining"] = *time;
    }
    return battery;
}

}  // namespace orv
