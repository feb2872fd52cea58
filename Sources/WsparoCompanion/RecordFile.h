#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Json.h"

namespace orv::companion {

enum class FileCondition { good, missing, forbidden, broken };

FileCondition conditionOf(const FileError& error);

/// What was found of a file with a JSON record. Unlike the daemon, which makes the best of it and
/// goes on, people are told what is wrong.
template <typename Record>
struct Reading {
    FileCondition condition = FileCondition::missing;
    Record record{};     // only when it is good
    std::string path;    // where it was looked for, as the Mac calls it
    std::string reason;  // what is wrong, in English; for broken ones

    bool isGood() const { return condition == FileCondition::good; }
};

template <typename Record>
Reading<Record> readRecord(const std::string& location, const std::string& shownPath) {
    constexpr std::uint64_t limitBytes = 1 << 20;
    Reading<Record> reading{FileCondition::good, {}, shownPath, ""};
    try {
        reading.record = parseJson(readFile(location, limitBytes)).template get<Record>();
    } catch (const FileError& error) {
        reading.condition = conditionOf(error);
        reading.reason = error.reason() + ".";
    } catch (const DecodingError& error) {
        reading.condition = FileCondition::broken;
        reading.reason = error.what();
    }
    return reading;
}

}  // namespace orv::companion
