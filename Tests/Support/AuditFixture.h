#pragma once

#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/Audit/AuditRun.h"
#include "OrvViewerShared/Shell.h"
#include "Support/FakeClock.h"
#include "Support/FakeProcessRunner.h"
#include "Support/ScopedEnvironment.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestFiles.h"
#include "Support/TestLoop.h"

namespace orv {

/// A folder that stands for the Mac, scripted tools and driven time. A tool without a script does
/// not exist.
class AuditFixture : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;

    void tool(const std::string& executable, Arguments arguments, std::string output,
              std::chrono::nanoseconds delay = {}) {
        processes.answer(root.locate(executable), std::move(arguments),
                         {.standardOutput = std::move(output), .delay = delay});
    }

    void toolAlways(const std::string& executable, ScriptedProcess process) {
        processes.answerAlways(root.locate(executable), std::move(process));
    }

    void file(const std::string& path, std::string_view content) {
        createDirectories(parentPath(root.locate(path)));
        writeFileAtomically(root.locate(path), content);
    }

    void folder(const std::string& path) { createDirectories(root.locate(path)); }

    /// An application bundle whose information list has these entries (XML of a dictionary).
    void application(const std::string& path, const std::string& entries) {
        file(path + "/Contents/Info.plist",
             "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
                 "</dict></plist>\n");
    }

    AuditRun newRun() {
        auto note = [this](const std::string& topic, const std::exception& error) {
            failures.push_back(topic + ": " + error.what());
        };
        return {AuditTools(shell), workers, root, loop.executor(), note};
    }

    /// The executables of all calls so far, as the Mac's paths.
    std::vector<std::string> calledTools() const {
        std::vector<std::string> tools;
        for (const FakeProcessRunner::Call& call : processes.calls) {
            tools.push_back(root.shown(call.executable));
        }
        return tools;
    }

    static std::string fixture(const std::string& name) {
        return readFile(testFilePath("Fixtures/" + name), 10'000'000);
    }

    /// Thousands of small files are quick where no disk is behind them.
    static std::string quickestFolder() {
        const std::string inMemory = "/dev/shm";
        return std::filesystem::is_directory(inMemory)
                   ? inMemory
                   : std::filesystem::temp_directory_path().string();
    }

    test::ScopedEnvironment temporaryFolder{"TMPDIR", quickestFolder()};
    TemporaryDirectory directory;
    SystemRoot root{directory.path()};
    FakeClock clock;
    FakeProcessRunner processes{clock};
    Shell shell{processes, root, {.outputBytes = 1 << 20}};
    TestLoop loop{clock};
    WorkerPool workers;
    std::vector<std::string> failures;
};

}  // namespace orv
