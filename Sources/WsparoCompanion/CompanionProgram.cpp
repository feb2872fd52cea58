#include "WsparoCompanion/CompanionProgram.h"

#include <cerrno>
#include <exception>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/TerminalInput.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/ChatCommands.h"
#include "WsparoCompanion/DoctorCommand.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/HelpTexts.h"
#include "WsparoCompanion/LoginCommand.h"
#include "WsparoCompanion/StatusCommand.h"
#include "WsparoCompanion/Surroundings.h"
#include "WsparoCompanion/Texts.h"
#include "WsparoCompanion/TicketCommands.h"
#include "WsparoCompanion/UpdateCommands.h"

namespace orv::companion {

namespace {

bool wantsColours(const Environment& environment, int descriptor) {
    const std::string refusal = environment("NO_COLOR").value_or("");
    return isTerminal(descriptor) && refusal.empty() && environment("TERM") != "dumb";
}

std::optional<SystemRoot> homeBelow(const SystemRoot& root, const std::string& home) {
    if (!home.starts_with('/')) return std::nullopt;
    return SystemRoot(root.locate(home));
}

int perform(const Surroundings& surroundings, const Arguments& arguments) {
    switch (arguments.command) {
        case Command::help: surroundings.out.write(helpText(surroundings.language)); break;
        case Command::version: surroundings.out.line(MacViewerBuildInfo::version); break;
        case Command::status: return showStatus(surroundings, arguments);
        case Command::chatSend: return sendChat(surroundings, arguments);
        case Command::chatList: return listChat(surroundings, arguments);
        case Command::chatWatch: return watchChat(surroundings, arguments);
        case Command::updateCheck: return checkForUpdate(surroundings, arguments);
        case Command::updateStatus: return showUpdateStatus(surroundings, arguments);
        case Command::ticketNew: return openTicket(surroundings, arguments);
        case Command::login: return logIn(surroundings, arguments);
        case Command::logout: return logOut(surroundings);
        case Command::tickets: return showTickets(surroundings, arguments);
        case Command::doctor: return runDoctor(surroundings);
    }
    return exitCode::success;
}

int exitStatusOf(const FileError& error) {
    return error.systemError() == EACCES || error.systemError() == EPERM ? exitCode::noPermission
                                                                         : exitCode::failure;
}

/// Runs the command; what it fails with is told in the person's language.
int performAndTell(const Surroundings& surroundings, const std::vector<std::string>& given) {
    const auto tell = [&](std::string_view text) {
        surroundings.err.line(fmt::format("wsparo: {}", text));
    };
    try {
        return perform(surroundings, parseArguments(given, surroundings.language));
    } catch (const UsageError& error) {
        tell(error.what());
        surroundings.err.line(surroundings.say(texts::seeHelp));
        return exitCode::usage;
    } catch (const CommandFailure& failure) {
        tell(failure.what());
        return failure.status();
    } catch (const FileError& error) {
        tell(surroundings.say(texts::cannotUse, surroundings.root.shown(error.path()),
                              error.reason()));
        return exitStatusOf(error);
    }
}

}  // namespace

CompanionProgram CompanionProgram::ofThisProcess(int argumentCount, char** arguments) {
    CompanionProgram program;
    for (int i = 1; i < argumentCount; ++i)
        program.arguments.emplace_back(arguments[i]);
    program.environment = [](const char* name) -> std::optional<std::string> {
        const char* value = ::getenv(name);
        if (value == nullptr) return std::nullopt;
        return value;
    };
    return program;
}

int CompanionProgram::run() const {
    ::signal(SIGPIPE, SIG_IGN);
    const UserAccount user = currentUserAccount();
    const std::optional<SystemRoot> home = homeBelow(root, environment("HOME").value_or(user.home));
    SystemClock clock;
    const ViewerLogger logger(home.value_or(root), clock);
    Output out(STDOUT_FILENO, wantsColours(environment, STDOUT_FILENO), Output::Loss::isError);
    Output err(STDERR_FILENO, wantsColours(environment, STDERR_FILENO), Output::Loss::isIgnored);
    const Surroundings surroundings{root,
                                    home,
                                    environment(ViewerSettings::environmentVariable),
                                    user,
                                    languageOf(environment),
                                    clock,
                                    logger,
                                    out,
                                    err};
    try {
        return performAndTell(surroundings, arguments);
    } catch (const OutputClosed&) {
        return exitCode::success;
    } catch (const std::exception& error) {
        err.line("wsparo: " + surroundings.say(texts::unexpected, error.what()));
        return exitCode::failure;
    }
}

}  // namespace orv::companion
