#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemProcessRunner.h"
#include "OrvViewerShared/Commands/CommandError.h"
#include "OrvViewerShared/Commands/ShellCommand.h"
#include "Support/FakeClock.h"
#include "Support/FakeProcessRunner.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

const std::string truncationMarker = "\n...[output truncated by Wsparo Brenvox]...";

/// The rules, with shells that only pretend.
class ShellCommandTest : public testing::Test {
protected:
    ShellCommandTest() { theShellsDo({.standardOutput = "done\n"}); }

    void theShellsDo(const ScriptedProcess& process) {
        for (const char* shell : {"/mac/bin/zsh", "/mac/bin/bash", "/mac/bin/sh"}) {
            runner.answerAlways(shell, process);
        }
    }

    Json execute(const char* payload) { return loop.run(command.executeShell(parseJson(payload))); }

    const FakeProcessRunner::Call& callFor(const char* payload) {
        execute(payload);
        return runner.calls.back();
    }

    std::string refusalOf(const char* payload) {
        try {
            execute(payload);
        } catch (const CommandError& error) {
            EXPECT_EQ(error.domain(), "OrvViewerShell");
            EXPECT_EQ(error.code(), 400);
            EXPECT_TRUE(runner.calls.empty());
            return error.what();
        }
        return "It ran.";
    }

    FakeClock clock;
    TestLoop loop{clock};
    FakeProcessRunner runner{clock};
    ShellCommand command{{runner, clock, SystemRoot("/mac")}};
};

TEST_F(ShellCommandTest, answersWithTenKeys) {
    theShellsDo({.standardOutput = "out\n",
                 .standardError = "err\n",
                 .end = Exited{3},
                 .delay = 1999999us});
    EXPECT_EQ(execute(R"({"command": " ls \n"})"), parseJson(R"({
        "platform": "macos",
        "shell": "zsh",
        "executable": "/bin/zsh",
        "command": " ls \n",
        "exit_code": 3,
        "stdout": "out\n",
        "stderr": "err\n",
        "timed_out": false,
        "duration_ms": 1999,
        "completed_at": "2026-03-01T09:15:03Z"
    })"));
}

TEST_F(ShellCommandTest, aLoginShellRunsTheTextAsItIs) {
    const auto& call = callFor(R"({"command": " echo $HOME\n"})");
    EXPECT_EQ(call.executable, "/mac/bin/zsh");
    EXPECT_THAT(call.arguments, ElementsAre("-lc", " echo $HOME\n"));
    EXPECT_TRUE(call.environmentChanges.empty());
}

TEST_F(ShellCommandTest, knowsThreeShellsInAnySpelling) {
    EXPECT_EQ(execute(R"({"shell": " \tBASH\n", "command": "ls"})")["executable"], "/bin/bash");
    EXPECT_EQ(execute(R"({"shell": " \tBASH\n", "command": "ls"})")["shell"], "bash");
    EXPECT_EQ(execute(R"({"shell": "sh", "command": "ls"})")["executable"], "/bin/sh");
    EXPECT_EQ(execute(R"({"shell": "Zsh", "command": "ls"})")["executable"], "/bin/zsh");
}

TEST_F(ShellCommandTest, aShellThatIsNoTextIsTheDefaultOne) {
    for (const char* shell : {"null", "7", "true", "[]", "{}", "1.5"}) {
        const std::string payload = fmt::format(R"({{"shell": {}, "command": "ls"}})", shell);
        EXPECT_EQ(execute(payload.c_str())["shell"], "zsh") << shell;
    }
}

TEST_F(ShellCommandTest, refusesOtherShells) {
    EXPECT_EQ(refusalOf(R"({"shell": " Fish ", "command": "ls"})"),
              "Unsupported macOS shell: fish");
    EXPECT_EQ(refusalOf(R"({"shell": "", "command": "ls"})"), "Unsupported macOS shell: ");
    EXPECT_EQ(refusalOf(R"({"shell": "/bin/zsh", "command": "ls"})"),
              "Unsupported macOS shell: /bin/zsh");
    EXPECT_EQ(refusalOf(R"({"shell": "fish", "command": ""})"), "Unsupported macOS shell: fish");
}

TEST_F(ShellCommandTest, refusesACommandWithoutText) {
    for (const char* payload :
         {R"({})", R"(null)", R"([])", R"("ls")", R"({"command": ""})", R"({"command": " \n\t "})",
          R"({"command": null})", R"({"command": 7})", R"({"command": ["ls"]})",
          R"({"command": true})", R"({"command": {"a": "ls"}})"}) {
        EXPECT_EQ(refusalOf(payload), "Command cannot be empty.") << payload;
    }
}

TEST_F(ShellCommandTest, clampsTheTimeOut) {
    const auto timeoutFor = [this](const std::string& value) {
        const std::string payload =
            fmt::format(R"({{"command": "ls", "timeout_seconds": {}}})", value);
        return callFor(payload.c_str()).timeout;
    };
    EXPECT_EQ(callFor(R"({"command": "ls"})").timeout, 60s);
    EXPECT_EQ(timeoutFor("0"), 1s);
    EXPECT_EQ(timeoutFor("1000"), 300s);
    EXPECT_EQ(timeoutFor(R"("45")"), 45s);
    EXPECT_EQ(timeoutFor(R"("abc")"), 60s);
    EXPECT_EQ(timeoutFor("2.0"), 60s);
    EXPECT_EQ(timeoutFor("99999999999999999999"), 60s);
    for (const char* value : {"null", "true", "[]", "{}"})
        EXPECT_EQ(timeoutFor(value), 60s);
}

TEST_F(ShellCommandTest, cutsEachOutputBehindItsLimit) {
    theShellsDo(
        {.standardOutput = std::string(1000, 'o'), .standardError = std::string(1001, 'e')});
    const Json answer = execute(R"({"command": "ls", "max_output_chars": 10})");
    EXPECT_EQ(answer["stdout"], std::string(1000, 'o'));
    EXPECT_EQ(answer["stderr"], std::string(1000, 'e') + truncationMarker);
}

TEST_F(ShellCommandTest, clampsTheOutputLimit) {
    theShellsDo({.standardOutput = std::string(600000, 'o')});
    const auto keptFor = [this](const std::string& value) {
        const std::string payload =
            fmt::format(R"({{"command": "ls", "max_output_chars": {}}})", value);
        return execute(payload.c_str())["stdout"].get<std::string>().size() -
               truncationMarker.size();
    };
    EXPECT_EQ(keptFor("0"), 1000U);
    EXPECT_EQ(keptFor("2000"), 2000U);
    EXPECT_EQ(keptFor(R"("+2000")"), 2000U);
    EXPECT_EQ(keptFor("1000000"), 500000U);
    for (const char* value :
         {"null", "true", "[]", "{}", R"("many")", "1e3", "99999999999999999999"}) {
        EXPECT_EQ(keptFor(value), 200000U) << value;
    }
}

TEST_F(ShellCommandTest, outputThatIsNoTextIsShownAsEmpty) {
    theShellsDo({.standardOutput = "half \xE2\x82", .standardError = "whole"});
    const Json answer = execute(R"({"command": "ls"})");
    EXPECT_EQ(answer["stdout"], "");
    EXPECT_EQ(answer["stderr"], "whole");
}

TEST_F(ShellCommandTest, aShellEndedByASignalShowsTheSignalsNumber) {
    theShellsDo({.end = Signalled{SIGKILL}});
    EXPECT_EQ(execute(R"({"command": "ls"})")["exit_code"], 9);
}

TEST_F(ShellCommandTest, aTimeOutIsAResult) {
    theShellsDo({.standardOutput = "so far", .delay = 3600s});
    const Json answer = execute(R"({"command": "ls", "timeout_seconds": 5})");
    EXPECT_EQ(answer["timed_out"], true);
    EXPECT_EQ(answer["stdout"], "so far");
    EXPECT_EQ(answer["exit_code"], SIGTERM);
    EXPECT_EQ(answer["duration_ms"], 5000);
}

TEST_F(ShellCommandTest, aShellThatCannotStartIsNamedByItsPathOnTheMac) {
    runner.failToLaunch("/mac/bin/zsh", "Resource temporarily unavailable");
    try {
        execute(R"({"command": "ls"})");
        FAIL() << "It ran.";
    } catch (const LaunchError& error) {
        EXPECT_STREQ(error.what(), "Resource temporarily unavailable: /bin/zsh");
    }
}

/// The shells of this machine.
class RealShellTest : public testing::TestWithParam<const char*> {
protected:
    RealShellTest() { ::setenv("HOME", home.path().c_str(), 1); }
    ~RealShellTest() override { ::setenv("HOME", homeBefore.c_str(), 1); }

    Json execute(const std::string& text, const Json& more = Json::object()) {
        Json payload = more;
        payload["shell"] = GetParam();
        payload["command"] = text;
        return loop.run(command.executeShell(std::move(payload)));
    }

    // Without the profile of whoever runs the tests.
    TemporaryDirectory home;
    std::string homeBefore = ::getenv("HOME") == nullptr ? "/" : ::getenv("HOME");
    TestLoop loop;
    SystemProcessRunner runner{loop.executor(), {40ms, 60ms}};
    SystemClock clock;
    ShellCommand command{{runner, clock, SystemRoot()}};
};

TEST_P(RealShellTest, runsACommand) {
    const Json answer = execute("echo hi; echo ho >&2; exit 3");
    EXPECT_EQ(answer["executable"], std::string("/bin/") + GetParam());
    EXPECT_EQ(answer["stdout"], "hi\n");
    EXPECT_EQ(answer["stderr"], "ho\n");
    EXPECT_EQ(answer["exit_code"], 3);
    EXPECT_EQ(answer["timed_out"], false);
    EXPECT_LT(answer["duration_ms"].get<int>(), 5000);
}

TEST_P(RealShellTest, isALoginShell) {
    for (const char* profile : {".profile", ".zprofile"}) {
        std::ofstream(home.path(profile)) << "IS_LOGIN=yes\n";
    }
    EXPECT_EQ(execute("echo $IS_LOGIN")["stdout"], "yes\n");
}

TEST_P(RealShellTest, endsByASignal) {
    EXPECT_EQ(execute("kill -9 $$")["exit_code"], 9);
}

TEST_P(RealShellTest, printsWhatIsNoText) {
    EXPECT_EQ(execute("printf 'a\\377b'; echo fine >&2")["stdout"], "");
    EXPECT_EQ(execute("printf 'a\\377b'; echo fine >&2")["stderr"], "fine\n");
}

TEST_P(RealShellTest, closesItsOutputsEarly) {
    EXPECT_EQ(execute("exec >&- 2>&-; exit 4")["exit_code"], 4);
}

TEST_P(RealShellTest, leavesADaemonBehind) {
    const Json answer = execute("sleep 100 >/dev/null 2>&1 & echo $!");
    EXPECT_EQ(answer["exit_code"], 0);
    EXPECT_LT(answer["duration_ms"].get<int>(), 5000);
    EXPECT_EQ(::kill(std::stoi(answer["stdout"].get<std::string>()), SIGKILL), 0);
}

INSTANTIATE_TEST_SUITE_P(Shells, RealShellTest, testing::Values("zsh", "bash", "sh"),
                         [](const auto& shell) { return std::string(shell.param); });

TEST(RealShellTimeOutTest, aCommandThatIgnoresTheRequestToEndIsKilled) {
    TestLoop loop;
    SystemProcessRunner runner(loop.executor());  // with the real grace of 0.3 s
    SystemClock clock;
    ShellCommand command({runner, clock, SystemRoot()});
    Json payload{{"command", "trap '' TERM; echo begun; exec sleep 100"}, {"timeout_seconds", 1}};
    const Json answer = loop.run(command.executeShell(std::move(payload)));
    EXPECT_EQ(answer["timed_out"], true);
    EXPECT_EQ(answer["exit_code"], 9);
    EXPECT_EQ(answer["stdout"], "begun\n");
    EXPECT_GE(answer["duration_ms"].get<int>(), 1300);
    EXPECT_LT(answer["duration_ms"].get<int>(), 5000);
}

}  // namespace
}  // namespace orv
