#pragma once

#include <chrono>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/ProcessRunner.h"

namespace orv {

/// What a program of a test does: prints, takes its time, ends.
struct ScriptedProcess {
    std::string standardOutput = {};
    std::string standardError = {};
    ProcessEnd end = Exited{0};
    std::chrono::nanoseconds delay{};
};

/// Plays programs from a script; time passes on the given clock. A program that is not in the
/// script does not exist.
class FakeProcessRunner final : public ProcessRunner {
public:
    explicit FakeProcessRunner(Clock& clockToWaitOn) : clock(clockToWaitOn) {}

    /// For these arguments exactly; a later answer replaces an earlier one.
    void answer(std::string executable, std::vector<std::string> arguments,
                ScriptedProcess process);

    /// For all arguments without an answer of their own.
    void answerAlways(std::string executable, ScriptedProcess process);

    /// From now on the program does not exist.
    void forget(const std::string& executable);

    /// From now on the program fails to start, for example with "Permission denied".
    void failToLaunch(std::string executable, std::string reason);

    /// From now on, while so many programs run, one more fails to start for want of room.
    std::size_t room = std::numeric_limits<std::size_t>::max();

    struct Call {
        std::string executable;
        std::vector<std::string> arguments;
        std::vector<std::string> environmentChanges;
        std::chrono::nanoseconds timeout;
        bool inOwnSession;
    };
    std::vector<Call> calls;

    /// How many programs run, now and at most so far.
    std::size_t running = 0;
    std::size_t mostAtOnce = 0;

    Task<ProcessResult> run(ProcessRequest request) override;

private:
    const ScriptedProcess& scriptFor(const ProcessRequest& request) const;

    Clock& clock;
    std::map<std::pair<std::string, std::vector<std::string>>, ScriptedProcess> exactAnswers;
    std::map<std::string, ScriptedProcess> generalAnswers;
    std::map<std::string, std::string> launchFailures;
};

}  // namespace orv
