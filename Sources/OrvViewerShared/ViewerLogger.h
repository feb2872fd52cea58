#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// The daemon's diagnostic output: one line per record, appended to one file that is emptied when
/// the next line would push it past its limit. For administrators, in English.
///
///     2026-03-01T09:15:02Z [INFO] Wsparo Brenvox macOS daemon started.
///
/// Every operation may be called from any thread; none reports a failure: logging never stops the
/// daemon. The file is opened anew for each line, so that administrators may move or delete it.
class ViewerLogger {
public:
    static constexpr std::uint64_t maximumLogFileSize = 10'485'760;  // bytes

    ViewerLogger(SystemRoot root, const Clock& clock);

    void info(std::string_view message) const;
    void warn(std::string_view message) const;
    void error(std::string_view message) const;

    /// The message, ": " and what the error says of itself.
    void error(const std::exception& error, std::string_view message) const;

    /// Where a line would go at this moment, as a place on this file system.
    std::string logFile() const;

private:
    void write(std::string_view level, std::string_view message) const;
    std::string writableLogDirectory() const;

    SystemRoot root;
    const Clock& clock;
};

}  // namespace orv
