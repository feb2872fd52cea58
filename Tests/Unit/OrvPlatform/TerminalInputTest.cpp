#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/FileDescriptor.h"
#include "OrvPlatform/TerminalInput.h"
#include "Support/TemporaryDirectory.h"

namespace orv {
namespace {

class TerminalInputTest : public testing::Test {
protected:
    /// Somewhere to read the text from.
    int input(const std::string& text) {
        writeFileAtomically(folder.path("input"), text);
        file = FileDescriptor(::open(folder.path("input").c_str(), O_RDONLY));
        return file.get();
    }

    TemporaryDirectory folder;
    FileDescriptor file;
};

TEST_F(TerminalInputTest, readsLineByLine) {
    const int from = input("pierwszy\r\n\nostatni");
    EXPECT_EQ(readLine(from), "pierwszy");
    EXPECT_EQ(readLine(from), "");
    EXPECT_EQ(readLine(from), "ostatni");
    EXPECT_EQ(readLine(from), std::nullopt);
}

TEST_F(TerminalInputTest, leavesWhatFollowsTheLine) {
    const int from = input("hasło\nreszta\n");
    const auto neverAsked = [] { FAIL() << "there is nobody to ask"; };
    EXPECT_EQ(readSecretLine(from, neverAsked), "hasło");
    EXPECT_EQ(readToEnd(from, 100), "reszta\n");
}

TEST_F(TerminalInputTest, refusesMoreThanItsLimits) {
    EXPECT_THROW(readLine(input(std::string((64 << 10) + 1, 'x'))), FileError);
    EXPECT_THROW(readToEnd(input("123456"), 5), FileError);
    EXPECT_EQ(readToEnd(input("12345"), 5), "12345");
    EXPECT_THROW(readLine(-1), FileError);
}

/// Both ends of a terminal.
class PseudoTerminal {
public:
    PseudoTerminal() : person(::posix_openpt(O_RDWR | O_NOCTTY)) {
        EXPECT_EQ(::grantpt(person.get()), 0);
        EXPECT_EQ(::unlockpt(person.get()), 0);
        program = FileDescriptor(::open(::ptsname(person.get()), O_RDWR | O_NOCTTY));
    }

    bool echoes() const {
        termios attributes{};
        ::tcgetattr(program.get(), &attributes);
        return (attributes.c_lflag & ECHO) != 0;
    }

    /// So many bytes of what the person sees.
    std::string seen(std::size_t length) const {
        std::string text(length, '\0');
        std::size_t count = 0;
        while (count < length) {
            const ssize_t more = ::read(person.get(), text.data() + count, length - count);
            if (more <= 0) break;
            count += static_cast<std::size_t>(more);
        }
        return text.substr(0, count);
    }

    FileDescriptor person;
    FileDescriptor program;
};

/// Reads a secret in a process of its own, which ends with 0 when it was the expected one.
pid_t readInChild(const PseudoTerminal& terminal) {
    const pid_t child = ::fork();
    if (child == 0) {
        // Whoever runs the tests in the background has it ignored.
        ::signal(SIGINT, SIG_DFL);
        const auto prompt = [&] { std::ignore = ::write(terminal.program.get(), "?", 1); };
        ::_exit(readSecretLine(terminal.program.get(), prompt) == "tajne" ? 0 : 1);
    }
    return child;
}

int endOf(pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return status;
}

TEST_F(TerminalInputTest, showsNothingOfASecret) {
    const PseudoTerminal terminal;
    ASSERT_TRUE(isTerminal(terminal.program.get()));
    const pid_t child = readInChild(terminal);
    ASSERT_EQ(terminal.seen(1), "?");
    EXPECT_FALSE(terminal.echoes());
    ASSERT_EQ(::write(terminal.person.get(), "tajne\n", 6), 6);
    EXPECT_EQ(endOf(child), 0);
    EXPECT_TRUE(terminal.echoes());
    EXPECT_EQ(terminal.seen(2), "\r\n");
}

TEST_F(TerminalInputTest, leavesTheTerminalAsItWasWhenInterrupted) {
    const PseudoTerminal terminal;
    const pid_t child = readInChild(terminal);
    ASSERT_EQ(terminal.seen(1), "?");
    ::kill(child, SIGINT);
    const int status = endOf(child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    EXPECT_TRUE(terminal.echoes());
}

}  // namespace
}  // namespace orv
