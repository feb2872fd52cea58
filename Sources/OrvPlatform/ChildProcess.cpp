#include "OrvPlatform/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "OrvPlatform/SpawnSupport.h"

extern char** environ;

namespace orv {

namespace {

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

/// Throws errno's value as std::system_error when it is an error.
void check(int systemError) {
    if (systemError != 0) throw std::system_error(systemError, std::generic_category());
}

/// A descriptor above the standard three: the spawn actions fill those one after the other, and
/// must not overwrite a pipe that got one of their numbers because ours were closed.
FileDescriptor aboveStandardOnes(int descriptor) {
    FileDescriptor given(descriptor);
    if (descriptor > STDERR_FILENO) return given;
    FileDescriptor moved(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!moved.isOpen()) check(errno);
    return moved;
}

Pipe openOutputPipe() {
    int ends[2];
    check(openPrivatePipe(ends));
    FileDescriptor writeEnd(ends[1]);
    Pipe pipe;
    pipe.readEnd = aboveStandardOnes(ends[0]);
    pipe.writeEnd = aboveStandardOnes(writeEnd.release());
    if (::fcntl(pipe.readEnd.get(), F_SETFL, O_NONBLOCK) != 0) check(errno);
    return pipe;
}

class SpawnAttributes {
public:
    SpawnAttributes() { check(::posix_spawnattr_init(&value)); }
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&value); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    /// The mask and handling with which a program expects to begin.
    short useDefaultSignals() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        check(::posix_spawnattr_setsigmask(&value, &none));
        check(::posix_spawnattr_setsigdefault(&value, &all));
        return POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    }

    posix_spawnattr_t value;
};

class SpawnFileActions {
public:
    SpawnFileActions() { check(::posix_spawn_file_actions_init(&value)); }
    ~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&value); }
    SpawnFileActions(const SpawnFileActions&) = delete;
    SpawnFileActions& operator=(const SpawnFileActions&) = delete;

    void openNullDevice(int as, int mode) {
        check(::posix_spawn_file_actions_addopen(&value, as, "/dev/null", mode, 0));
    }

    void connectOutput(int as, const FileDescriptor& writeEnd) {
        if (!writeEnd.isOpen()) return openNullDevice(as, O_WRONLY);
        check(::posix_spawn_file_actions_adddup2(&value, writeEnd.get(), as));
    }

    posix_spawn_file_actions_t value;
};

std::string_view variableName(std::string_view setting) {
    return setting.substr(0, setting.find('='));
}

std::vector<std::string> changedEnvironment(const std::vector<std::string>& changes) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view name = variableName(*entry);
        const auto changesIt = [name](const std::string& change) {
            return variableName(change) == name;
        };
        if (std::none_of(changes.begin(), changes.end(), changesIt))
            environment.emplace_back(*entry);
    }
    environment.insert(environment.end(), changes.begin(), changes.end());
    return environment;
}

/// The pointers that the system wants; a text with a zero byte would silently lose its end.
std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        if (text.find('\0') != std::string::npos) check(EINVAL);
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t spawn(const ProcessRequest& request, const FileDescriptor& output,
            const FileDescriptor& error) {
    std::vector<std::string> arguments{request.executable};
    arguments.insert(arguments.end(), request.arguments.begin(), request.arguments.end());
    std::vector<std::string> environment = changedEnvironment(request.environmentChanges);
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);

    SpawnAttributes attributes;
    SpawnFileActions actions;
    short flags = attributes.useDefaultSignals();
    if (request.inOwnSession) flags |= POSIX_SPAWN_SETSID;
    actions.openNullDevice(STDIN_FILENO, O_RDONLY);
    actions.connectOutput(STDOUT_FILENO, output);
    actions.connectOutput(STDERR_FILENO, error);
    check(keepOtherDescriptorsOut(attributes.value, flags, actions.value));
    check(::posix_spawnattr_setflags(&attributes.value, flags));

    pid_t processId = -1;
    check(::posix_spawn(&processId, request.executable.c_str(), &actions.value, &attributes.value,
                        argumentPointers.data(), environmentPointers.data()));
    return processId;
}

ProcessEnd decoded(int status) {
    if (WIFSIGNALED(status)) return Signalled{WTERMSIG(status)};
    return Exited{WEXITSTATUS(status)};
}

bool isShortage(const std::error_code& code) {
    return code == std::errc::resource_unavailable_try_again ||
           code == std::errc::too_many_files_open ||
           code == std::errc::too_many_files_open_in_system || code == std::errc::not_enough_memory;
}

}  // namespace

ChildProcess::ChildProcess(const ProcessRequest& request) {
    try {
        Pipe output;
        Pipe error;
        if (request.onStandardOutput) output = openOutputPipe();
        if (request.onStandardError) error = openOutputPipe();
        processId = spawn(request, output.writeEnd, error.writeEnd);
        standardOutput = std::move(output.readEnd);
        standardError = std::move(error.readEnd);
    } catch (const std::system_error& failure) {
        throw LaunchError(request.executable, failure.code().message(), isShortage(failure.code()));
    }
}

ChildProcess::~ChildProcess() {
    if (end()) return;
    signal(SIGKILL);
    int status = 0;
    while (::waitpid(processId, &status, 0) < 0 && errno == EINTR) {
    }
}

std::optional<ProcessEnd> ChildProcess::end() {
    if (knownEnd) return knownEnd;
    int status = 0;
    const pid_t waited = ::waitpid(processId, &status, WNOHANG);
    if (waited == processId) knownEnd = decoded(status);
    // Somebody else's wait took the status; at least nobody waits for ever.
    if (waited < 0 && errno == ECHILD) knownEnd = Exited{-1};
    return knownEnd;
}

void ChildProcess::signal(int number) {
    if (!end()) ::kill(processId, number);
}

}  // namespace orv
