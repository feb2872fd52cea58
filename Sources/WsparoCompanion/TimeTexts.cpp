#include "WsparoCompanion/TimeTexts.h"

#include <array>
#include <chrono>
#include <ctime>

#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

using namespace std::chrono_literals;

struct Step {
    std::chrono::seconds unit;
    CountedNoun noun;
};

// From the largest; months and years by their mean length.
constexpr std::array<Step, 5> steps{{
    {31'556'952s, {"rok", "lata", "lat", "year", "years"}},
    {2'629'746s, {"miesiąc", "miesiące", "miesięcy", "month", "months"}},
    {24h, {"dzień", "dni", "dni", "day", "days"}},
    {1h, {"godzinę", "godziny", "godzin", "hour", "hours"}},
    {1min, {"min", "min", "min", "min", "min"}},
}};

}  // namespace

std::string timeAgo(WallTime then, WallTime now, Language language) {
    const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - then);
    if (age <= -1min) return filled(language, texts::timeAhead, localTime(then));
    for (const Step& step : steps) {
        if (age < step.unit) continue;
        return filled(language, texts::timeAgo, step.noun.of(age / step.unit, language));
    }
    return texts::justNow.in(language);
}

std::string localTime(WallTime time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    ::tzset();  // the other function reads the time zone only once
    ::localtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &parts);
    return {text.data(), length};
}

}  // namespace orv::companion
