#include "OrvPlatform/Iso8601.h"

#include <limits>

#include <fmt/format.h>

namespace orv {

namespace {

using std::chrono::floor;
using std::chrono::seconds;
using std::chrono::sys_days;

/// Takes a text apart from the left; remembers whether everything was there.
class Reader {
public:
    explicit Reader(std::string_view text) : rest(text) {}

    /// A number of exactly so many decimal digits.
    int digits(std::size_t count) {
        int value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            if (rest.empty() || rest.front() < '0' || rest.front() > '9') {
                ok = false;
                return 0;
            }
            value = value * 10 + (rest.front() - '0');
            rest.remove_prefix(1);
        }
        return value;
    }

    bool skip(char expected) {
        if (!rest.starts_with(expected)) return false;
        rest.remove_prefix(1);
        return true;
    }

    void require(bool condition) { ok = ok && condition; }

    bool isDone() const { return ok && rest.empty(); }

private:
    std::string_view rest;
    bool ok = true;
};

sys_days readDate(Reader& reader) {
    const std::chrono::year year{reader.digits(4)};
    reader.require(reader.skip('-'));
    const std::chrono::month month{static_cast<unsigned>(reader.digits(2))};
    reader.require(reader.skip('-'));
    const std::chrono::day day{static_cast<unsigned>(reader.digits(2))};
    const std::chrono::year_month_day date{year, month, day};
    reader.require(year >= std::chrono::year{1} && date.ok());
    return date.ok() ? sys_days{date} : sys_days{};
}

seconds readHoursAndMinutes(Reader& reader, bool colonRequired) {
    const int hours = reader.digits(2);
    const bool colon = reader.skip(':');
    const int minutes = reader.digits(2);
    reader.require((colon || !colonRequired) && hours < 24 && minutes < 60);
    return std::chrono::hours{hours} + std::chrono::minutes{minutes};
}

/// How far the named time is ahead of UTC.
seconds readOffset(Reader& reader) {
    if (reader.skip('Z')) return seconds{0};
    if (reader.skip('+')) return readHoursAndMinutes(reader, false);
    reader.require(reader.skip('-'));
    return -readHoursAndMinutes(reader, false);
}

bool fitsWallTime(std::chrono::sys_seconds time) {
    return time >= std::chrono::ceil<seconds>(WallTime::min()) &&
           time <= floor<seconds>(WallTime::max());
}

}  // namespace

std::string iso8601(WallTime time) {
    const auto day = floor<std::chrono::days>(time);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{floor<seconds>(time - day)};
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                       clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<WallTime> parseIso8601(std::string_view text) {
    Reader reader(text);
    std::chrono::sys_seconds time = readDate(reader);
    reader.require(reader.skip('T'));
    time += readHoursAndMinutes(reader, true);
    reader.require(reader.skip(':'));
    const int second = reader.digits(2);
    reader.require(second < 60);
    time += seconds{second};
    time -= readOffset(reader);
    if (!reader.isDone() || !fitsWallTime(time)) return std::nullopt;
    return WallTime{time};
}

}  // namespace orv
