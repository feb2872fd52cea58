#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvPlatform/FileDescriptor.h"
#include "Support/ProcessRunnerFixture.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Lt;

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.exists() || entry.is_symlink() ? 1 : 0;
    }
    return count;
}

/// A set of signals in the system's description of a process.
std::uint64_t signalsUnder(const std::string& key, const std::string& status) {
    const std::size_t found = status.find(key);
    if (found == std::string::npos) throw std::runtime_error("no " + key);
    return std::stoull(status.substr(found + key.size(), 16), nullptr, 16);
}

using SystemProcessRunnerTest = ProcessRunnerFixture;

TEST_F(SystemProcessRunnerTest, readsBothStreamsWhileTheyFill) {
    const std::size_t size = 5 << 20;
    run(script(fmt::format("head -c {0} /dev/zero >&2; head -c {0} /dev/zero", size)));
    EXPECT_EQ(output.size(), size);
    EXPECT_EQ(errors.size(), size);
}

TEST_F(SystemProcessRunnerTest, passesOutputOnInPiecesOfLimitedSize) {
    ProcessRequest request = program("/usr/bin/head", {"-c", "1000000", "/dev/zero"});
    std::size_t largest = 0;
    request.onStandardOutput = [&](std::string_view piece) {
        largest = std::max(largest, piece.size());
    };
    run(request);
    EXPECT_THAT(largest, AllOf(Ge(1U), testing::Le(65536U)));
}

TEST_F(SystemProcessRunnerTest, runsTwoHundredProgramsSideBySide) {
    std::map<int, std::string> answers;
    std::vector<std::unique_ptr<BackgroundTask>> tasks;
    for (int i = 0; i < 200; ++i) {
        // None ends before all have begun.
        ProcessRequest request = script(fmt::format("sleep 0.2; echo {}; exit {}", i, i % 7));
        request.onStandardOutput = [&answers, i](std::string_view bytes) { answers[i] += bytes; };
        auto expectEnd = [](Task<ProcessResult> task, int code) -> Task<void> {
            const ProcessResult result = co_await std::move(task);
            EXPECT_EQ(result.end, ProcessEnd(Exited{code}));
        };
        tasks.push_back(std::make_unique<BackgroundTask>(
            loop, expectEnd(runner.run(std::move(request)), i % 7)));
    }
    for (const auto& task : tasks) {
        waitFor(*task);
        EXPECT_EQ(task->error, nullptr);
    }
    ASSERT_EQ(answers.size(), 200U);
    for (const auto& [number, text] : answers)
        EXPECT_EQ(text, fmt::format("{}\n", number));
}

TEST_F(SystemProcessRunnerTest, noticesAnEndAtOnce) {
    // A look every 50 ms would need a second for these.
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 20; ++i)
        run(program("/bin/true", {}));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 700ms);
}

TEST_F(SystemProcessRunnerTest, aStrangersChildHidesNoEnd) {
    const pid_t stranger = ::fork();
    if (stranger == 0) ::_exit(0);
    siginfo_t ended{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(stranger), &ended, WEXITED | WNOWAIT), 0);
    ProcessRequest request = program("/bin/true", {});
    request.timeout = 5s;
    const ProcessResult result = run(request);
    ::waitpid(stranger, nullptr, 0);
    EXPECT_EQ(result.end, ProcessEnd(Exited{0}));
    EXPECT_LT(result.duration, 3s);
}

TEST_F(SystemProcessRunnerTest, anEndThatSomebodyElseWaitedForIsNoticed) {
    ProcessRequest request = program("/bin/true", {});
    request.timeout = 5s;
    std::optional<ProcessResult> result;
    BackgroundTask task(loop, keep(runner.run(request), result));
    loop.context.poll_one();
    ASSERT_GT(::waitpid(-1, nullptr, 0), 0);
    waitFor(task);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->end, ProcessEnd(Exited{-1}));
    EXPECT_LT(result->duration, 3s);
}

TEST_F(SystemProcessRunnerTest, killsAProgramThatIgnoresTheRequestToEnd) {
    ProcessRequest request = script("trap '' TERM; echo begun; exec sleep 100");
    request.timeout = 150ms;
    const ProcessResult result = run(request);
    EXPECT_EQ(result.end, ProcessEnd(Signalled{SIGKILL}));
    EXPECT_TRUE(result.timedOut);
    EXPECT_THAT(result.duration, AllOf(Ge(150ms + grace), Lt(5s)));
    EXPECT_EQ(output, "begun\n");
}

TEST_F(SystemProcessRunnerTest, aProgramMayUseTheGraceToTidyUp) {
    ProcessRequest request =
        script("trap 'echo tidied; kill $!; exit 5' TERM; sleep 100 & echo begun; wait");
    request.timeout = 150ms;
    const ProcessResult result = run(request);
    EXPECT_EQ(result.end, ProcessEnd(Exited{5}));
    EXPECT_TRUE(result.timedOut);
    EXPECT_EQ(output, "begun\ntidied\n");
}

TEST_F(SystemProcessRunnerTest, anEndInTimeThatIsNoticedLateIsNoTimeOut) {
    ProcessRequest request = program("/bin/true", {});
    request.timeout = 30ms;
    std::optional<ProcessResult> result;
    BackgroundTask task(loop, keep(runner.run(request), result));
    loop.context.poll_one();
    ::usleep(60'000);  // something else holds the loop
    waitFor(task);
    ASSERT_TRUE(result);
    EXPECT_FALSE(result->timedOut);
    EXPECT_EQ(result->end, ProcessEnd(Exited{0}));
}

TEST_F(SystemProcessRunnerTest, readsWhatABackgroundChildPrintsAfterTheEnd) {
    const ProcessResult result = run(script("(sleep 0.03; echo late) & echo early"));
    EXPECT_EQ(output, "early\nlate\n");
    EXPECT_LT(result.duration, 5s);
}

TEST_F(SystemProcessRunnerTest, aBackgroundChildHoldsTheCallUntilTheTimeOutOnly) {
    const std::size_t openBefore = openDescriptors();
    ProcessRequest request = script("sleep 100 & echo $!");
    request.timeout = 150ms;
    const ProcessResult result = run(request);
    EXPECT_EQ(result.end, ProcessEnd(Exited{0}));
    EXPECT_FALSE(result.timedOut);
    EXPECT_THAT(result.duration, AllOf(Ge(150ms), Lt(5s)));
    const pid_t background = std::stoi(output);
    EXPECT_TRUE(exists(background));
    loop.runReady();
    EXPECT_EQ(openDescriptors(), openBefore);
    ::kill(background, SIGKILL);
}

TEST_F(SystemProcessRunnerTest, outputIsReadForAWhileAlsoAfterATimeOut) {
    ProcessRequest request = script(
        "trap '' TERM; sh -c 'trap \"\" TERM; sleep 100 >/dev/null 2>&1 & echo $!; wait' & "
        "exec sleep 100");
    request.timeout = 100ms;
    const ProcessResult result = run(request);
    EXPECT_EQ(result.end, ProcessEnd(Signalled{SIGKILL}));
    EXPECT_THAT(result.duration, AllOf(Ge(100ms + grace + drain), Lt(5s)));
    // Only the program itself was told to end.
    const pid_t grandchild = std::stoi(output);
    EXPECT_TRUE(exists(grandchild));
    ::kill(grandchild, SIGKILL);
}

TEST_F(SystemProcessRunnerTest, waitsForAProgramThatClosesItsOutputsEarly) {
    const ProcessResult result = run(script("exec >&- 2>&-; sleep 0.03; exit 3"));
    EXPECT_EQ(result.end, ProcessEnd(Exited{3}));
    EXPECT_GE(result.duration, 30ms);
}

TEST_F(SystemProcessRunnerTest, noDescriptorOfOursReachesAProgram) {
    const FileDescriptor inheritable(::open("/dev/null", O_RDONLY));
    ASSERT_TRUE(inheritable.isOpen());
    run(program("/bin/ls", {"/proc/self/fd"}));
    EXPECT_EQ(output, "0\n1\n2\n3\n");  // the last is the listing's own
}

TEST_F(SystemProcessRunnerTest, standardInputIsEmpty) {
    run(program("/bin/readlink", {"/proc/self/fd/0"}));
    EXPECT_EQ(output, "/dev/null\n");
}

TEST_F(SystemProcessRunnerTest, anOutputWithoutASinkIsTheNullDevice) {
    ProcessRequest request = program("/bin/readlink", {"/proc/self/fd/2"});
    request.onStandardError = nullptr;
    run(request);
    EXPECT_EQ(output, "/dev/null\n");
}

TEST_F(SystemProcessRunnerTest, aProgramBeginsWithDefaultSignals) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto handler = std::signal(SIGPIPE, SIG_IGN);
    run(program("/bin/cat", {"/proc/self/status"}));
    std::signal(SIGPIPE, handler);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(signalsUnder("SigBlk:\t", output), 0U);
    // The C library has two of its own (32 and 33) ignored in every program that it starts.
    EXPECT_EQ(signalsUnder("SigIgn:\t", output) & ~std::uint64_t{0x180000000}, 0U);
}

TEST_F(SystemProcessRunnerTest, changesTheEnvironmentOnTopOfOurOwn) {
    ::setenv("ORV_TEST_KEPT", "kept", 1);
    ::setenv("ORV_TEST_CHANGED", "old", 1);
    ProcessRequest request = script("echo $ORV_TEST_KEPT $ORV_TEST_CHANGED $ORV_TEST_NEW");
    request.environmentChanges = {"ORV_TEST_CHANGED=a=b", "ORV_TEST_NEW=new"};
    run(request);
    ::unsetenv("ORV_TEST_KEPT");
    ::unsetenv("ORV_TEST_CHANGED");
    EXPECT_EQ(output, "kept a=b new\n");
}

TEST_F(SystemProcessRunnerTest, argumentsArriveAsTheyAre) {
    run(program("/usr/bin/printf", {"<%s>", "", "two words", "$HOME;'\"", "żółw"}));
    EXPECT_EQ(output, "<><two words><$HOME;'\"><żółw>");
}

TEST_F(SystemProcessRunnerTest, saysWhyAProgramCannotStart) {
    const TemporaryDirectory folder;
    const std::string noProgram = folder.path() + "/text";
    FileDescriptor(::open(noProgram.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0755)).reset();
    EXPECT_EQ(launchErrorOf(program("/no/where", {})), "No such file or directory: /no/where");
    EXPECT_EQ(launchErrorOf(program("/tmp", {})), "Permission denied: /tmp");
    EXPECT_EQ(launchErrorOf(program(noProgram, {})), "Exec format error: " + noProgram);
    EXPECT_EQ(launchErrorOf(program("/bin/echo", {std::string("a\0b", 3)})),
              "Invalid argument: /bin/echo");
    EXPECT_EQ(launchErrorOf(program("/bin/echo", {std::string(3 << 20, 'x')})),
              "Argument list too long: /bin/echo");
}

TEST_F(SystemProcessRunnerTest, nothingStaysOpenWhateverHappens) {
    run(program("/bin/true", {}));
    const std::size_t before = openDescriptors();
    launchErrorOf(program("/no/where", {}));
    run(script("echo hi; echo ho >&2"));
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(SystemProcessRunnerTest, aProgramFailsAtTheDescriptorLimitAndTheNextOneRuns) {
    // The sanitizer looks once at every type on this way, and needs descriptors for that.
    launchErrorOf(program("/no/where", {}));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const std::size_t open = openDescriptors();
    const FileDescriptor lowestFree(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    // Room for none to three more: fails at one or the other pipe, or at its second end.
    for (int room = 0; room < 4; ++room) {
        rlimit scarce = before;
        scarce.rlim_cur = static_cast<rlim_t>(lowestFree.get() + 1 + room);
        ::setrlimit(RLIMIT_NOFILE, &scarce);
        const std::string error = launchErrorOf(program("/bin/true", {}));
        ::setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(error, "Too many open files: /bin/true") << room;
    }
    EXPECT_EQ(openDescriptors(), open + 1);
    EXPECT_EQ(run(program("/bin/true", {})).end, ProcessEnd(Exited{0}));
}

TEST_F(SystemProcessRunnerTest, aProgramFailsAtTheProcessLimit) {
    // In a process of its own: root is above the limit, and there is no way back from less.
    const auto fillTable = [this] {
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NPROC, &none) != 0) ::_exit(3);
        if (::geteuid() == 0 && ::setuid(54321) != 0) ::_exit(4);
        const std::string error = launchErrorOf(program("/bin/true", {}));
        fmt::print(stderr, "{}\n", error);
        ::_exit(0);
    };
    EXPECT_EXIT(fillTable(), testing::ExitedWithCode(0),
                "Resource temporarily unavailable: /bin/true");
}

TEST_F(SystemProcessRunnerTest, worksWithoutStandardDescriptorsOfOurOwn) {
    const auto runWithout = [this] {
        for (int descriptor = 0; descriptor < 3; ++descriptor)
            ::close(descriptor);
        run(script("readlink /proc/self/fd/0; echo error >&2"));
        ProcessRequest errorsOnly = script("echo more >&2");
        errorsOnly.onStandardOutput = nullptr;
        run(errorsOnly);
        ::_exit(output == "/dev/null\n" && errors == "error\nmore\n" ? 0 : 1);
    };
    EXPECT_EXIT(runWithout(), testing::ExitedWithCode(0), "");
}

TEST_F(SystemProcessRunnerTest, runsAlsoWhenTheWorkingDirectoryIsGone) {
    const std::filesystem::path before = std::filesystem::current_path();
    {
        const TemporaryDirectory folder;
        std::filesystem::current_path(folder.path());
    }
    const ProcessResult result = run(script("echo still here"));
    std::filesystem::current_path(before);
    EXPECT_EQ(result.end, ProcessEnd(Exited{0}));
    EXPECT_EQ(output, "still here\n");
}

TEST_F(SystemProcessRunnerTest, theLoopHasNothingToDoAfterTheLastProgram) {
    run(script("(sleep 0.03; echo after the end) &"));
    loop.context.restart();
    loop.context.run();  // returns only when nothing is waited for
    EXPECT_TRUE(loop.context.stopped());
}

}  // namespace
}  // namespace orv
