#include "WsparoCompanion/LoginCommand.h"

#include <exception>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/TerminalInput.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/ViewerError.h"
#include "WsparoCompanion/AgentFiles.h"
#include "WsparoCompanion/CustomerSession.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/HelpdeskAccess.h"
#include "WsparoCompanion/Interruptible.h"
#include "WsparoCompanion/Printable.h"
#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

std::string emailToLogInWith(const Surroundings& surroundings, const Arguments& arguments) {
    std::optional<std::string> email = arguments.value("--email");
    if (!email) {
        if (!isTerminal(STDIN_FILENO)) {
            throw UsageError(surroundings.say(texts::missingOption, "--email"));
        }
        surroundings.err.write(surroundings.say(texts::askEmail));
        email = readLine(STDIN_FILENO);
    }
    const std::string given = trimmed(email.value_or(""));
    if (given.empty()) throw UsageError(surroundings.say(texts::missingOption, "--email"));
    return given;
}

std::string passwordFromPerson(const Surroundings& surroundings) {
    std::optional<std::string> password = readSecretLine(
        STDIN_FILENO, [&] { surroundings.err.write(surroundings.say(texts::askPassword)); });
    if (!password || password->empty()) {
        throw UsageError(surroundings.say(texts::emptyPassword));
    }
    return std::move(*password);
}

bool isRefusal(const std::exception& error) {
    const auto* viewerError = dynamic_cast<const ViewerError*>(&error);
    return viewerError != nullptr && viewerError->kind() == ViewerError::Kind::http &&
           viewerError->status() == 401;
}

/// Whoever logs in again reads on where they stopped.
std::int64_t cursorOf(const Reading<CustomerSession>& earlier, const CustomerSession& now) {
    const bool isSamePerson = earlier.isGood() &&
                              earlier.record.serverBaseUrl == now.serverBaseUrl &&
                              earlier.record.session.customer.email == now.session.customer.email;
    return isSamePerson ? earlier.record.cursor : 0;
}

/// "wsparo login" at work. It must outlive its task.
class Login {
public:
    Login(const Surroundings& surroundings, HelpdeskAccess& access, std::string serverBaseUrl)
        : surroundings(surroundings), access(access), serverBaseUrl(std::move(serverBaseUrl)) {}

    Task<int> run(std::string email, std::string password) {
        CustomerSession session{serverBaseUrl, {}, 0};
        try {
            session.session = co_await access.customers().loginCustomer(email, password);
        } catch (const std::exception& error) {
            if (isCancellation(error)) throw;
            if (isRefusal(error)) {
                throw surroundings.failure(exitCode::loginNeeded, texts::wrongPassword);
            }
            throw helpdeskFailure(error, Caller::customer, texts::actionLogIn, surroundings);
        }
        const CustomerSessionFile file(surroundings);
        session.cursor = cursorOf(file.read(), session);
        file.write(session);
        const CustomerProfile& customer = session.session.customer;
        surroundings.out.line(surroundings.say(texts::loggedIn, printableLine(customer.fullName),
                                               printableLine(customer.email)));
        co_return exitCode::success;
    }

private:
    const Surroundings& surroundings;
    HelpdeskAccess& access;
    std::string serverBaseUrl;
};

}  // namespace

int logIn(const Surroundings& surroundings, const Arguments& arguments) {
    const ViewerSettings settings = requiredSettings(surroundings);
    const CustomerSessionFile file(surroundings);  // no home folder: say so before asking
    std::string email = emailToLogInWith(surroundings, arguments);
    std::string password = passwordFromPerson(surroundings);
    if (!isValidUtf8(email) || !isValidUtf8(password)) {
        throw UsageError(surroundings.say(texts::invalidUtf8));
    }
    Interruptible thread(exitCode::interrupted);
    HelpdeskAccess access(thread.executor(), surroundings.clock, settings, {}, usualTotalTimeout);
    Login login(surroundings, access, settings.serverBaseUrl);
    return thread.run(login.run(std::move(email), std::move(password)));
}

int logOut(const Surroundings& surroundings) {
    const CustomerSessionFile file(surroundings);
    if (!file.remove()) {
        throw surroundings.failure(exitCode::noPermission, texts::cannotUse, file.location(), "-");
    }
    surroundings.out.line(surroundings.say(texts::loggedOut));
    return exitCode::success;
}

}  // namespace orv::companion
