#pragma once

#include <chrono>
#include <csignal>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "OrvPlatform/SystemProcessRunner.h"
#include "Support/TestLoop.h"

namespace orv {

/// The real runner with short times, and what programs print under it.
class ProcessRunnerFixture : public testing::Test {
protected:
    static constexpr std::chrono::milliseconds grace{40};
    static constexpr std::chrono::milliseconds drain{60};
    static constexpr std::chrono::milliseconds pollPeriod{20};

    ProcessRequest program(std::string executable, std::vector<std::string> arguments) {
        ProcessRequest request;
        request.executable = std::move(executable);
        request.arguments = std::move(arguments);
        request.onStandardOutput = [this](std::string_view bytes) { output += bytes; };
        request.onStandardError = [this](std::string_view bytes) { errors += bytes; };
        return request;
    }

    ProcessRequest script(std::string text) { return program("/bin/sh", {"-c", std::move(text)}); }

    ProcessResult run(ProcessRequest request) { return loop.run(runner.run(std::move(request))); }

    std::string launchErrorOf(ProcessRequest request) {
        try {
            run(std::move(request));
        } catch (const LaunchError& error) {
            return error.what();
        }
        return "It ran.";
    }

    Task<void> runToNowhere(ProcessRequest request) { co_await runner.run(std::move(request)); }

    static Task<void> keep(Task<ProcessResult> task, std::optional<ProcessResult>& kept) {
        kept = co_await std::move(task);
    }

    void waitForOutput() {
        while (output.empty())
            loop.context.run_one_for(pollPeriod);
    }

    void waitFor(const BackgroundTask& task) {
        while (!task.isDone)
            loop.context.run_one_for(pollPeriod);
    }

    static bool exists(pid_t process) {
        return ::kill(process, 0) == 0;  // also true for a zombie
    }

    TestLoop loop;
    SystemProcessRunner runner{loop.executor(), {grace, drain}};
    std::string output;
    std::string errors;
};

}  // namespace orv
