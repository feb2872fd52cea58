#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "Support/FakeClock.h"
#include "Support/FakeWebSockets.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

namespace orv {

/// What everything needs that talks over sockets: driven time, a log, scripted connections.
class SocketAgentFixture : public testing::Test {
protected:
    TemporaryDirectory folder;
    FakeClock clock;
    TestLoop loop{clock};
    ViewerLogger logger{SystemRoot(folder.path()), clock};
    FakeWebSockets sockets{loop.executor()};

    /// The log's lines without their times: "[INFO] Control WSS ready.".
    std::vector<std::string> log() const {
        constexpr std::size_t timeLength = 21;
        std::vector<std::string> lines;
        if (!fileExists(logger.logFile())) return lines;
        const std::string text = readFile(logger.logFile(), 10'000'000);
        for (const std::string_view line : linesOf(text)) {
            if (!line.empty()) lines.emplace_back(line.substr(timeLength));
        }
        return lines;
    }
};

}  // namespace orv
