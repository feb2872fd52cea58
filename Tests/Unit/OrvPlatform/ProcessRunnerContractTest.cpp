// What every ProcessRunner does, the real one and the fake, so that they do not drift apart.
#include <csignal>
#include <memory>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/ProcessRunner.h"
#include "OrvPlatform/SystemProcessRunner.h"
#include "Support/FakeProcessRunner.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

class RunnerUnderTest {
public:
    virtual ~RunnerUnderTest() = default;
    virtual ProcessRunner& runner() = 0;
    /// A request for a program that behaves like this.
    virtual ProcessRequest requestFor(const ScriptedProcess& process) = 0;
    TestLoop loop;
};

class RealRunner final : public RunnerUnderTest {
public:
    ProcessRunner& runner() override { return real; }

    ProcessRequest requestFor(const ScriptedProcess& process) override {
        std::string script = fmt::format("printf %s '{}'; printf %s '{}' >&2; ",
                                         process.standardOutput, process.standardError);
        const double seconds = std::chrono::duration<double>(process.delay).count();
        if (process.delay > 1s) {
            script += fmt::format("exec sleep {}", seconds);
        } else {
            script += fmt::format("sleep {}; {}", seconds, endOf(process.end));
        }
        ProcessRequest request;
        request.executable = "/bin/sh";
        request.arguments = {"-c", script};
        return request;
    }

private:
    static std::string endOf(const ProcessEnd& end) {
        if (const auto* exited = std::get_if<Exited>(&end)) {
            return fmt::format("exit {}", exited->code);
        }
        return fmt::format("kill -{} $$", std::get<Signalled>(end).signal);
    }

    SystemProcessRunner real{loop.executor()};
};

class FakeRunner final : public RunnerUnderTest {
public:
    ProcessRunner& runner() override { return fake; }

    ProcessRequest requestFor(const ScriptedProcess& process) override {
        fake.answer("/bin/scripted", {"once"}, process);
        ProcessRequest request;
        request.executable = "/bin/scripted";
        request.arguments = {"once"};
        return request;
    }

private:
    SystemClock clock;
    FakeProcessRunner fake{clock};
};

using MakeRunner = std::unique_ptr<RunnerUnderTest> (*)();

template <typename Runner>
std::unique_ptr<RunnerUnderTest> make() {
    return std::make_unique<Runner>();
}

class ProcessRunnerContractTest : public testing::TestWithParam<MakeRunner> {
protected:
    ProcessResult run(ProcessRequest request) {
        return tested->loop.run(tested->runner().run(std::move(request)));
    }

    ProcessRequest requestFor(const ScriptedProcess& process) {
        ProcessRequest request = tested->requestFor(process);
        request.onStandardOutput = [this](std::string_view bytes) { output += bytes; };
        request.onStandardError = [this](std::string_view bytes) { errors += bytes; };
        return request;
    }

    std::unique_ptr<RunnerUnderTest> tested = GetParam()();
    std::string output;
    std::string errors;
};

TEST_P(ProcessRunnerContractTest, tellsTheExitCode) {
    ScriptedProcess process;
    process.end = Exited{3};
    const ProcessResult result = run(requestFor(process));
    EXPECT_EQ(result.end, ProcessEnd(Exited{3}));
    EXPECT_FALSE(result.timedOut);
}

TEST_P(ProcessRunnerContractTest, tellsTheSignal) {
    ScriptedProcess process;
    process.end = Signalled{SIGKILL};
    EXPECT_EQ(run(requestFor(process)).end, ProcessEnd(Signalled{SIGKILL}));
}

TEST_P(ProcessRunnerContractTest, keepsTheTwoOutputsApart) {
    ScriptedProcess process;
    process.standardOutput = "to people";
    process.standardError = "to the log";
    run(requestFor(process));
    EXPECT_EQ(output, "to people");
    EXPECT_EQ(errors, "to the log");
}

TEST_P(ProcessRunnerContractTest, outputsWithoutASinkAreNoMatter) {
    ScriptedProcess process;
    process.standardOutput = "nobody";
    process.standardError = "listens";
    process.end = Exited{1};
    EXPECT_EQ(run(tested->requestFor(process)).end, ProcessEnd(Exited{1}));
}

TEST_P(ProcessRunnerContractTest, measuresTheWholeTime) {
    ScriptedProcess process;
    process.delay = 30ms;
    const ProcessResult result = run(requestFor(process));
    EXPECT_GE(result.duration, 30ms);
    EXPECT_LT(result.duration, 5s);
}

TEST_P(ProcessRunnerContractTest, endsAProgramWhoseTimeIsUp) {
    ScriptedProcess process;
    process.standardOutput = "begun";
    process.delay = 100s;
    ProcessRequest request = requestFor(process);
    request.timeout = 100ms;
    const ProcessResult result = run(request);
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(result.end, ProcessEnd(Signalled{SIGTERM}));
    EXPECT_GE(result.duration, 100ms);
    EXPECT_EQ(output, "begun");
}

TEST_P(ProcessRunnerContractTest, namesAProgramThatIsNotThere) {
    ProcessRequest request;
    request.executable = "/bin/no such program";
    try {
        run(request);
        FAIL() << "It ran.";
    } catch (const LaunchError& error) {
        EXPECT_STREQ(error.what(), "No such file or directory: /bin/no such program");
        EXPECT_EQ(error.reason(), "No such file or directory");
    }
}

TEST_P(ProcessRunnerContractTest, aCancelledCallThrowsTheCancellation) {
    ScriptedProcess process;
    process.delay = 100s;
    auto discard = [](Task<ProcessResult> task) -> Task<void> { co_await std::move(task); };
    BackgroundTask task(tested->loop, discard(tested->runner().run(requestFor(process))));
    tested->loop.runReady();
    ASSERT_FALSE(task.isDone);
    task.cancel();
    while (!task.isDone)
        tested->loop.context.run_one_for(20ms);
    EXPECT_TRUE(task.wasCancelled());
}

INSTANTIATE_TEST_SUITE_P(Runners, ProcessRunnerContractTest,
                         testing::Values(&make<RealRunner>, &make<FakeRunner>),
                         [](const testing::TestParamInfo<MakeRunner>& runner) {
                             return runner.index == 0 ? "real" : "fake";
                         });

}  // namespace
}  // namespace orv
