#include "OrvPlatform/TerminalInput.h"

#include <array>
#include <cerrno>
#include <signal.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/File.h"

namespace orv {

namespace {

constexpr std::size_t lineLimitBytes = 64 << 10;
constexpr const char* shownName = "/dev/stdin";
constexpr std::array<int, 4> endingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

volatile sig_atomic_t caughtSignal = 0;

/// While it lives, what is typed is not shown, and signals that end programs only interrupt
/// waitForInput(); afterwards everything is as before.
class HiddenTyping {
public:
    explicit HiddenTyping(int usedTerminal) : terminal(usedTerminal) {
        holdSignals();
        caughtSignal = 0;
        struct sigaction remember{};
        remember.sa_handler = [](int number) { caughtSignal = number; };
        for (std::size_t i = 0; i < endingSignals.size(); ++i) {
            ::sigaction(endingSignals[i], &remember, &actions[i]);
        }
        ::tcgetattr(terminal, &attributes);
        termios hidden = attributes;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL;
        // A suspended program would leave the shell with a terminal that shows nothing.
        hidden.c_cc[VSUSP] = _POSIX_VDISABLE;
        ::tcsetattr(terminal, TCSAFLUSH, &hidden);
    }

    ~HiddenTyping() {
        ::tcsetattr(terminal, TCSANOW, &attributes);
        for (std::size_t i = 0; i < endingSignals.size(); ++i) {
            ::sigaction(endingSignals[i], &actions[i], nullptr);
        }
        if (caughtSignal != 0) ::raise(caughtSignal);
        ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    }

    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

    /// False: a signal came.
    bool waitForInput() const {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(terminal, &readable);
        // Signals can arrive here only, so that none slips in between looking and waiting.
        const int ready = ::pselect(terminal + 1, &readable, nullptr, nullptr, nullptr, &mask);
        return ready > 0 && caughtSignal == 0;
    }

private:
    void holdSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : endingSignals)
            sigaddset(&held, number);
        ::sigprocmask(SIG_BLOCK, &held, &mask);
    }

    int terminal;
    termios attributes{};
    sigset_t mask{};
    std::array<struct sigaction, endingSignals.size()> actions{};
};

std::string withoutCarriageReturn(std::string line) {
    if (line.ends_with('\r')) line.pop_back();
    return line;
}

}  // namespace

bool isTerminal(int descriptor) {
    return ::isatty(descriptor) == 1;
}

std::optional<std::string> readLine(int descriptor) {
    std::string line;
    for (;;) {
        char next = 0;
        // Byte by byte: what is read beyond the line would be lost to the next reader.
        const ssize_t length = ::read(descriptor, &next, 1);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throw FileError(errno, shownName);
        if (length == 0 && line.empty()) return std::nullopt;
        if (length == 0 || next == '\n') return withoutCarriageReturn(std::move(line));
        if (line.size() == lineLimitBytes) throw FileError("Line too long", shownName);
        line += next;
    }
}

std::optional<std::string> readSecretLine(int descriptor, const std::function<void()>& prompt) {
    if (!isTerminal(descriptor)) return readLine(descriptor);
    const HiddenTyping hidden(descriptor);
    prompt();
    if (!hidden.waitForInput()) return std::nullopt;
    return readLine(descriptor);
}

std::string readToEnd(int descriptor, std::size_t limitBytes) {
    std::string text;
    std::array<char, 8192> buffer{};
    for (;;) {
        const ssize_t length = ::read(descriptor, buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) throw FileError(errno, shownName);
        if (length == 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(length));
        if (text.size() > limitBytes) throw FileError("File too large", shownName);
    }
}

}  // namespace orv
