#include "OrvViewerShared/Shell.h"

#include <string_view>
#include <utility>
#include <variant>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

/// Output up to a limit. Beyond it nothing is kept, but everything still taken, so that the tool
/// can come to its end.
class LimitedOutput {
public:
    explicit LimitedOutput(std::size_t limitBytes) : limit(limitBytes) {}

    OutputSink sink() {
        return [this](std::string_view bytes) { take(bytes); };
    }

    /// Nothing when there was too much or it is not valid UTF-8.
    std::optional<std::string> text() const {
        if (isTooLong || !isValidUtf8(kept)) return std::nullopt;
        return kept;
    }

private:
    void take(std::string_view bytes) {
        if (isTooLong) return;
        isTooLong = bytes.size() > limit - kept.size();
        if (isTooLong) {
            kept = std::string();
        } else {
            kept += bytes;
        }
    }

    std::size_t limit;
    std::string kept;
    bool isTooLong = false;
};

}  // namespace

Shell::Shell(ProcessRunner& givenRunner, SystemRoot givenRoot, ShellLimits givenLimits)
    : runner(givenRunner), root(std::move(givenRoot)), limits(givenLimits) {
}

Task<std::optional<std::string>> Shell::run(std::string executable,
                                            std::vector<std::string> arguments) {
    LimitedOutput output(limits.outputBytes);
    ProcessRequest request = requestFor(executable, std::move(arguments));
    request.onStandardOutput = output.sink();
    const std::optional<int> status = co_await statusOf(std::move(request));
    if (status != 0) co_return std::nullopt;
    const std::optional<std::string> text = output.text();
    if (!text) co_return std::nullopt;
    co_return trimmed(*text);
}

Task<std::optional<std::string>> Shell::processOutput(std::string executable,
                                                      std::vector<std::string> arguments) {
    LimitedOutput output(limits.outputBytes);
    LimitedOutput errors(limits.outputBytes);
    ProcessRequest request = requestFor(executable, std::move(arguments));
    request.onStandardOutput = output.sink();
    request.onStandardError = errors.sink();
    const std::optional<int> status = co_await statusOf(std::move(request));
    if (!status) co_return std::nullopt;
    const std::optional<std::string> outputText = output.text();
    const std::optional<std::string> errorText = errors.text();
    if (!outputText || !errorText) co_return std::nullopt;
    co_return trimmed(*outputText + "\n" + *errorText);
}

ProcessRequest Shell::requestFor(const std::string& executable,
                                 std::vector<std::string> arguments) {
    ProcessRequest request;
    request.executable = root.locate(executable);
    request.arguments = std::move(arguments);
    // launchd gives us no language either; a terminal would let tools translate words and dates.
    request.environmentChanges = {"LC_ALL=C"};
    request.timeout = limits.timeout;
    return request;
}

/// Nothing when the tool could not be started, was ended by a signal, or took too long.
Task<std::optional<int>> Shell::statusOf(ProcessRequest request) {
    try {
        const ProcessResult result = co_await runner.run(std::move(request));
        const auto* exited = std::get_if<Exited>(&result.end);
        if (result.timedOut || exited == nullptr) co_return std::nullopt;
        co_return exited->code;
    } catch (const LaunchError&) {
        co_return std::nullopt;
    }
}

}  // namespace orv
