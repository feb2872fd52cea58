#include "Support/FakeProcessRunner.h"

#include <algorithm>
#include <csignal>
#include <string_view>

namespace orv {

namespace {

constexpr std::size_t largestPiece = 65536;

void passOn(std::string_view output, const OutputSink& sink) {
    if (!sink) return;
    for (; !output.empty(); output.remove_prefix(std::min(output.size(), largestPiece))) {
        sink(output.substr(0, largestPiece));
    }
}

class RunningCount {
public:
    RunningCount(std::size_t& now, std::size_t& most) : count(now) {
        most = std::max(most, ++count);
    }
    ~RunningCount() { --count; }
    RunningCount(const RunningCount&) = delete;
    RunningCount& operator=(const RunningCount&) = delete;

private:
    std::size_t& count;
};

}  // namespace

void FakeProcessRunner::answer(std::string executable, std::vector<std::string> arguments,
                               ScriptedProcess process) {
    auto key = std::pair(std::move(executable), std::move(arguments));
    exactAnswers.insert_or_assign(std::move(key), std::move(process));
}

void FakeProcessRunner::answerAlways(std::string executable, ScriptedProcess process) {
    generalAnswers.insert_or_assign(std::move(executable), std::move(process));
}

void FakeProcessRunner::forget(const std::string& executable) {
    std::erase_if(exactAnswers, [&](const auto& entry) { return entry.first.first == executable; });
    generalAnswers.erase(executable);
}

void FakeProcessRunner::failToLaunch(std::string executable, std::string reason) {
    launchFailures.insert_or_assign(std::move(executable), std::move(reason));
}

const ScriptedProcess& FakeProcessRunner::scriptFor(const ProcessRequest& request) const {
    const auto failure = launchFailures.find(request.executable);
    if (failure != launchFailures.end()) throw LaunchError(request.executable, failure->second);
    if (running >= room) {
        throw LaunchError(request.executable, "Resource temporarily unavailable", true);
    }
    const auto exact = exactAnswers.find({request.executable, request.arguments});
    if (exact != exactAnswers.end()) return exact->second;
    const auto general = generalAnswers.find(request.executable);
    if (general != generalAnswers.end()) return general->second;
    throw LaunchError(request.executable, "No such file or directory");
}

Task<ProcessResult> FakeProcessRunner::run(ProcessRequest request) {
    calls.push_back({request.executable, request.arguments, request.environmentChanges,
                     request.timeout, request.inOwnSession});
    const ScriptedProcess process = scriptFor(request);
    const RunningCount counted(running, mostAtOnce);
    const MonotonicTime begin = clock.monotonicNow();
    passOn(process.standardOutput, request.onStandardOutput);
    passOn(process.standardError, request.onStandardError);

    ProcessResult result;
    result.timedOut = process.delay >= request.timeout;
    result.end = result.timedOut ? ProcessEnd(Signalled{SIGTERM}) : process.end;
    co_await clock.sleepFor(std::min(process.delay, request.timeout));
    result.duration = clock.monotonicNow() - begin;
    co_return result;
}

}  // namespace orv
