#include "OrvViewerShared/Commands/ShellCommand.h"

#include <chrono>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/TextLimiter.h"
#include "OrvViewerShared/Commands/CommandError.h"
#include "OrvViewerShared/Commands/Payload.h"

namespace orv {

namespace {

constexpr std::string_view truncationMarker = "\n...[output truncated by Wsparo Brenvox]...";

struct ShellOrder {
    std::string shell;
    std::string executable;  // the Mac's path
    std::string command;
    std::chrono::seconds timeout;
    std::size_t maxOutputCharacters;
};

[[noreturn]] void refuse(const std::string& description) {
    throw CommandError("OrvViewerShell", 400, description);
}

std::string executableOf(const std::string& shell) {
    if (shell == "zsh") return "/bin/zsh";
    if (shell == "bash") return "/bin/bash";
    if (shell == "sh") return "/bin/sh";
    refuse("Unsupported macOS shell: " + shell);
}

/// The shell is judged before the command.
ShellOrder orderFrom(const Json& payload) {
    ShellOrder order;
    order.shell = lowercased(trimmed(textIfPresent(payload, "shell").value_or("zsh")));
    order.executable = executableOf(order.shell);
    order.command = textIfPresent(payload, "command").value_or("");
    if (trimmed(order.command).empty()) refuse("Command cannot be empty.");
    order.timeout =
        std::chrono::seconds(payloadInt(payloadValue(payload, "timeout_seconds"), 60, 1, 300));
    order.maxOutputCharacters = static_cast<std::size_t>(
        payloadInt(payloadValue(payload, "max_output_chars"), 200000, 1000, 500000));
    return order;
}

/// A program that a signal ended shows the signal's number.
int exitCode(const ProcessEnd& end) {
    if (const auto* signalled = std::get_if<Signalled>(&end)) return signalled->signal;
    return std::get<Exited>(end).code;
}

}  // namespace

ShellCommand::ShellCommand(Parts given) : parts(std::move(given)) {
}

Task<Json> ShellCommand::executeShell(Json payload) {
    const ShellOrder order = orderFrom(payload);
    TextLimiter output(order.maxOutputCharacters);
    TextLimiter errors(order.maxOutputCharacters);

    ProcessRequest request;
    request.executable = parts.root.locate(order.executable);
    request.arguments = {"-lc", order.command};
    request.timeout = order.timeout;
    request.onStandardOutput = [&output](std::string_view bytes) { output.feed(bytes); };
    request.onStandardError = [&errors](std::string_view bytes) { errors.feed(bytes); };

    ProcessResult result;
    try {
        result = co_await parts.runner.run(std::move(request));
    } catch (const LaunchError& error) {
        throw LaunchError(order.executable, error.reason());
    }

    Json answer;
    answer["platform"] = "macos";
    answer["shell"] = order.shell;
    answer["executable"] = order.executable;
    answer["command"] = order.command;
    answer["exit_code"] = exitCode(result.end);
    answer["stdout"] = output.finish(truncationMarker);
    answer["stderr"] = errors.finish(truncationMarker);
    answer["timed_out"] = result.timedOut;
    answer["duration_ms"] =
        std::chrono::duration_cast<std::chrono::milliseconds>(result.duration).count();
    answer["completed_at"] = iso8601(parts.clock.now());
    co_return answer;
}

}  // namespace orv
