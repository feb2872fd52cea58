#include "WsparoCompanion/UpdateCommands.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Folder.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/Update/ViewerUpdateCoordinator.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Fields.h"
#include "WsparoCompanion/Interruptible.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TimeTexts.h"
#include "WsparoCompanion/UpdateFollower.h"
#include "WsparoCompanion/UpdateTexts.h"

namespace orv::companion {

namespace {

using namespace std::chrono_literals;

constexpr auto lookEvery = 250ms;
constexpr int usualPatience = 30;  // seconds; the agent looks for requests every two
constexpr int mostPatience = 3600;

/// "wsparo update check" at work. It must outlive its task.
class UpdateConversation {
public:
    UpdateConversation(const Surroundings& surroundings, int patienceSeconds)
        : surroundings(surroundings),
          coordinator({surroundings.root, surroundings.clock, surroundings.logger}),
          patienceSeconds(patienceSeconds) {}

    Task<int> run() {
        const std::optional<ViewerUpdateStatus> before = coordinator.readStatus();
        co_await untilNextSecondAfter(before);
        leaveRequest();
        surroundings.out.line(surroundings.say(texts::updateRequested));
        Clock& clock = surroundings.clock;
        UpdateFollower follower(before, clock.monotonicNow(),
                                std::chrono::seconds(patienceSeconds));
        for (;;) {
            const UpdateFollower::Sighting sighting{coordinator.readStatus(), requestWaits()};
            const auto step = follower.look(sighting, clock.monotonicNow());
            if (const std::optional<int> end = show(step)) co_return *end;
            co_await clock.sleepFor(lookEvery);
        }
    }

private:
    /// Times in the files have whole seconds: what is written from now on must look newer.
    Task<void> untilNextSecondAfter(std::optional<ViewerUpdateStatus> before) {
        if (!before) co_return;
        const auto age = surroundings.clock.now() - before->updatedAt;
        if (age >= 0s && age < 1s) co_await surroundings.clock.sleepFor(1s - age);
    }

    void leaveRequest() {
        try {
            coordinator.requestManualCheck();
        } catch (const FileError& error) {
            throw surroundings.failure(exitCode::noPermission, texts::updateCannotAsk,
                                       surroundings.root.shown(error.path()), error.reason());
        }
    }

    bool requestWaits() const {
        return readAttributes(surroundings.root.locate(paths::updateRequestPath)).has_value();
    }

    /// The exit status when that was the last step.
    std::optional<int> show(const UpdateFollower::Step& step) {
        if (const auto* progress = std::get_if<UpdateFollower::Progress>(&step)) {
            showOnce(progressText(progress->status, surroundings));
        } else if (const auto* end = std::get_if<UpdateFollower::Ended>(&step)) {
            const bool isFailed = end->status.phase == "failed";
            surroundings.out.line(surroundings.out.in(isFailed ? Colour::red : Colour::green,
                                                      progressText(end->status, surroundings)));
            return isFailed ? exitCode::failure : exitCode::success;
        } else if (std::holds_alternative<UpdateFollower::NotTaken>(step)) {
            removeEntry(surroundings.root.locate(paths::updateRequestPath));
            throw surroundings.failure(exitCode::failure, texts::updateNotTaken, patienceSeconds);
        } else if (std::holds_alternative<UpdateFollower::NoNews>(step)) {
            throw surroundings.failure(exitCode::failure, texts::updateNoNews);
        }
        return std::nullopt;
    }

    void showOnce(const std::string& text) {
        if (text == shown) return;
        shown = text;
        if (surroundings.out.isTerminal()) {
            surroundings.out.progress(text);
        } else {
            surroundings.out.line(text);
        }
    }

    const Surroundings& surroundings;
    ViewerUpdateCoordinator coordinator;
    int patienceSeconds;
    std::string shown;
};

void showFields(const ViewerUpdateStatus& status, const Surroundings& surroundings) {
    const auto say = [&](Bilingual text) { return surroundings.say(text); };
    Fields fields;
    fields.add(say(texts::labelPhase), phaseText(status.phase, surroundings));
    fields.add(say(texts::labelMessage), printableLine(status.message));
    fields.add(say(texts::labelCurrentVersion), printableLine(status.currentVersion));
    if (status.availableVersion) {
        fields.add(say(texts::labelAvailableVersion), printableLine(*status.availableVersion));
    }
    fields.add(say(texts::labelUpdatedAt),
               timeAgo(status.updatedAt, surroundings.clock.now(), surroundings.language));
    if (status.logPath) fields.add(say(texts::labelLog), printableLine(*status.logPath));
    surroundings.out.line(fields.text());
}

}  // namespace

int checkForUpdate(const Surroundings& surroundings, const Arguments& arguments) {
    const int patience =
        arguments.number("--wait", mostPatience, surroundings.language).value_or(usualPatience);
    UpdateConversation conversation(surroundings, patience);
    Interruptible thread(exitCode::interrupted);
    const int status = thread.run(conversation.run());
    if (thread.wasInterrupted()) surroundings.err.line(surroundings.say(texts::updateGoesOn));
    return status;
}

int showUpdateStatus(const Surroundings& surroundings, const Arguments& arguments) {
    const Reading<ViewerUpdateStatus> update = readUpdateStatus(surroundings);
    if (update.condition == FileCondition::broken) {
        throw CommandFailure(exitCode::failure, updateLine(update, surroundings));
    }
    if (arguments.has("--json")) {
        surroundings.out.write(prettyJson(update.isGood() ? Json(update.record) : Json()));
    } else if (update.isGood()) {
        showFields(update.record, surroundings);
    } else {
        surroundings.out.line(surroundings.say(texts::labelUpdate) + ": " +
                              updateLine(update, surroundings));
    }
    return update.isGood() && update.record.phase == "failed" ? exitCode::failure
                                                              : exitCode::success;
}

}  // namespace orv::companion
