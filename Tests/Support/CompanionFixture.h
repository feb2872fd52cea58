#pragma once

#include <fcntl.h>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "Support/FakeClock.h"
#include "Support/TemporaryDirectory.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// The companion's surroundings in a temporary root, with Polish texts and outputs without colours.
class CompanionFixture : public testing::Test {
protected:
    static FileDescriptor created(const std::string& path) {
        return FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    }

    /// Puts a file at a path of the Mac.
    void put(const std::string& path, const std::string& content) const {
        createDirectories(parentPath(root.locate(path)));
        writeFileAtomically(root.locate(path), content);
    }

    std::string printed() const { return readFile(folder.path("out"), 1 << 20); }
    std::string complained() const { return readFile(folder.path("err"), 1 << 20); }

    /// What the call fails with; empty when it does not.
    template <typename Error = CommandFailure, typename Call>
    static std::string failureOf(Call call) {
        try {
            call();
        } catch (const Error& error) {
            return error.what();
        }
        return "";
    }

    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    SystemRoot home{folder.path("Users/anna")};
    FakeClock clock;
    ViewerLogger logger{home, clock};
    FileDescriptor outFile = created(folder.path("out"));
    FileDescriptor errFile = created(folder.path("err"));
    Output out{outFile.get(), false, Output::Loss::isError};
    Output err{errFile.get(), false, Output::Loss::isIgnored};
    Surroundings surroundings{
        root,   home, std::nullopt, {"anna", "Anna Żak", "/Users/anna"}, Language::polish, clock,
        logger, out,  err};
};

inline constexpr const char* goodSettings = R"({"serverBaseUrl": "https://desk.example",
    "viewerToken": "secret-viewer", "auditIntervalMinutes": 720, "heartbeatIntervalSeconds": 300,
    "commandPollIntervalSeconds": 60, "chatPollIntervalSeconds": 3,
    "controlReconnectMaxSeconds": 60})";

}  // namespace orv::companion
