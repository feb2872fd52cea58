#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/PropertyList.h"
#include "OrvViewerShared/Paths.h"
#include "OrvViewerShared/Update/UpdaterJob.h"
#include "OrvViewerShared/ViewerError.h"
#include "Support/FakeProcessRunner.h"
#include "UpdateFixture.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

const std::vector<std::string> bootout{"bootout", "system/pl.brenvox.wsparo.updater"};
const std::vector<std::string> bootstrap{"bootstrap", "system", paths::updaterJobPath};

class UpdaterJobTest : public UpdateFixture {
protected:
    UpdaterJobTest() {
        manifest.version = "0.3.0";
        manifest.url = "https://desk.example/packages/1/new.pkg";
        manifest.sha256 = std::string(64, 'A');
        manifest.sizeBytes = 1234;
        processes.answer(launchctl, bootout, {.end = Exited{3}});
        processes.answer(launchctl, bootstrap, {});
    }

    Json schedule(const std::optional<std::string>& requester = std::nullopt) {
        UpdaterJob job({root, processes, clock, logger, coordinator, settings.serverBaseUrl});
        return loop.run(job.scheduleSelfUpdate(manifest, "manual", requester));
    }

    std::string failure() {
        try {
            schedule();
            return "";
        } catch (const ViewerError& error) {
            EXPECT_EQ(error.kind(), ViewerError::Kind::unsupported) << "the text must reach people";
            return error.what();
        }
    }

    /// Between the runs of programs, which sleep on this clock too.
    std::vector<std::chrono::nanoseconds> pauses() const {
        std::vector<std::chrono::nanoseconds> found = clock.sleeps;
        std::erase(found, 0ns);
        return found;
    }

    std::string launchctl = root.locate("/bin/launchctl");
    FakeProcessRunner processes{clock};
    ViewerUpdateManifest manifest;
};

TEST_F(UpdaterJobTest, tellsWhatWasStarted) {
    EXPECT_EQ(schedule("0.2.54"),
              (Json{{"platform", "macos"},
                    {"current_version", "0.2.55"},
                    {"requester_version", "0.2.54"},
                    {"available_version", "0.3.0"},
                    {"update_started", true},
                    {"sha256", std::string(64, 'a')},
                    {"size_bytes", 1234},
                    {"reason", "manual"},
                    {"log_path", "/Library/Logs/Wsparo Brenvox/wsparo-update.log"},
                    {"started_at", "2026-03-01T09:15:02Z"}}));
    EXPECT_FALSE(schedule().contains("requester_version"));
    EXPECT_THAT(log(), HasSubstr("[INFO] Wsparo Brenvox macOS self-update scheduled. "
                                 "version=0.3.0 reason=manual\n"));
}

TEST_F(UpdaterJobTest, theStatusIsThenQueued) {
    schedule();
    EXPECT_EQ(coordinator.readStatus(),
              (ViewerUpdateStatus{"queued",
                                  "Aktualizacja do wersji 0.3.0 została przekazana do niezależnej "
                                  "usługi systemowej.",
                                  "0.2.55", "0.3.0", clock.now(), paths::updateLogPath}));
}

TEST_F(UpdaterJobTest, whatTheScriptHasAlreadyWrittenStays) {
    processes.answer(launchctl, bootstrap, {.delay = 1s});
    writeStatus("downloading", 0s);
    UpdaterJob job({root, processes, clock, logger, coordinator, settings.serverBaseUrl});
    BackgroundTask task(loop, [](UpdaterJob& used, ViewerUpdateManifest offer) -> Task<void> {
        co_await used.scheduleSelfUpdate(std::move(offer), "manual", std::nullopt);
    }(job, manifest));
    loop.runReady();
    writeStatus("failed", 0s);
    loop.runFor(1s);
    EXPECT_TRUE(task.isDone);
    EXPECT_EQ(coordinator.readStatus()->phase, "failed");
}

TEST_F(UpdaterJobTest, theFilesBelongToRootAloneAndShowTheMacsOwnPaths) {
    const mode_t umaskBefore = ::umask(0);
    schedule();
    ::umask(umaskBefore);
    EXPECT_EQ(modeOf(place(paths::updaterScriptPath)), 0700U);
    EXPECT_EQ(modeOf(place(paths::updaterJobPath)), 0644U);
    EXPECT_EQ(modeOf(place(paths::updatesDirectory)), 0755U);
    EXPECT_EQ(modeOf(place(paths::updateRuntimeDirectory)), 01777U);
    EXPECT_TRUE(fs::is_directory(place(paths::logDirectory)));

    const std::string script = content(paths::updaterScriptPath);
    EXPECT_THAT(script, testing::StartsWith("#!/bin/bash\nset -e\n  UPDATE_DIR=\"/Library/"));
    EXPECT_EQ(script.find(folder.path()), std::string::npos);
    EXPECT_THAT(script, HasSubstr("Wsparo Brenvox macOS update 0.2.55 -> 0.3.0, reason=manual"));
}

TEST_F(UpdaterJobTest, theJobRunsTheScriptOnceAndSurvivesTheDaemon) {
    schedule();
    EXPECT_EQ(parsePropertyList(content(paths::updaterJobPath)), Json::parse(R"({
        "Label": "pl.brenvox.wsparo.updater",
        "ProgramArguments": ["/bin/bash",
            "/Library/Application Support/Wsparo Brenvox/updates/wsparo-updater.sh"],
        "RunAtLoad": true,
        "ProcessType": "Background",
        "AbandonProcessGroup": true,
        "StandardOutPath": "/Library/Logs/Wsparo Brenvox/wsparo-update.log",
        "StandardErrorPath": "/Library/Logs/Wsparo Brenvox/wsparo-update.log"})"));
}

TEST_F(UpdaterJobTest, aLeftoverJobIsBootedOutFirst) {
    schedule();
    ASSERT_EQ(processes.calls.size(), 2U);
    EXPECT_EQ(processes.calls[0].arguments, bootout);
    EXPECT_EQ(processes.calls[1].arguments, bootstrap);
    EXPECT_EQ(processes.calls[1].timeout, 30s);
    EXPECT_THAT(pauses(), ElementsAre());
}

TEST_F(UpdaterJobTest, aRefusedBootstrapIsTriedFiveTimesASecondApart) {
    processes.answer(launchctl, bootstrap, {.end = Exited{5}});
    EXPECT_EQ(failure(), "The independent macOS updater service could not be started.");
    EXPECT_EQ(processes.calls.size(), 6U);
    EXPECT_THAT(pauses(), ElementsAre(1s, 1s, 1s, 1s));
    EXPECT_EQ(coordinator.readStatus(), std::nullopt) << "nothing is queued";
}

TEST_F(UpdaterJobTest, aBootstrapThatSucceedsInTheEndIsAStart) {
    processes.answer(launchctl, bootstrap, {.end = Exited{5}, .delay = 1ms});
    UpdaterJob job({root, processes, clock, logger, coordinator, settings.serverBaseUrl});
    BackgroundTask task(loop, [](UpdaterJob& used, ViewerUpdateManifest offer) -> Task<void> {
        co_await used.scheduleSelfUpdate(std::move(offer), "manual", std::nullopt);
    }(job, manifest));
    loop.runFor(2500ms);
    EXPECT_FALSE(task.isDone);
    processes.answer(launchctl, bootstrap, {});
    loop.runFor(1s);
    EXPECT_TRUE(task.isDone);
    EXPECT_FALSE(task.error);
    EXPECT_EQ(coordinator.readStatus()->phase, "queued");
}

TEST_F(UpdaterJobTest, aLaunchctlThatIsMissingCrashesOrHangsIsARefusal) {
    for (const ScriptedProcess& process :
         {ScriptedProcess{.end = Signalled{9}}, ScriptedProcess{.delay = 24h}}) {
        processes.answer(launchctl, bootstrap, process);
        EXPECT_EQ(failure(), "The independent macOS updater service could not be started.");
    }
    processes.failToLaunch(launchctl, "No such file or directory");
    EXPECT_EQ(failure(), "The independent macOS updater service could not be started.");
}

TEST_F(UpdaterJobTest, nothingIsWrittenForAPackageThatIsRefused) {
    manifest.url = "https://evil.example/new.pkg";
    EXPECT_EQ(failure(), "Update package host is not trusted.");
    EXPECT_FALSE(fs::exists(place(paths::updatesDirectory)));
    EXPECT_FALSE(fs::exists(place(paths::updateRuntimeDirectory)));
    EXPECT_TRUE(processes.calls.empty());
}

TEST_F(UpdaterJobTest, aVersionThatIsNoTextCannotBeScripted) {
    manifest.version = "0.3\xFF";
    EXPECT_EQ(failure(), "Could not encode the macOS updater script.");
    EXPECT_FALSE(fs::exists(place(paths::updaterScriptPath)));
}

TEST_F(UpdaterJobTest, aLinkInTheUpdatesFoldersPlaceIsRefused) {
    fs::create_directories(folder.path("elsewhere"));
    coordinator.ensureRuntimeDirectory();
    fs::create_directory_symlink(folder.path("elsewhere"), place(paths::updatesDirectory));
    EXPECT_THROW(schedule(), FileError);
    EXPECT_TRUE(fs::is_empty(folder.path("elsewhere")));
}

}  // namespace
}  // namespace orv
