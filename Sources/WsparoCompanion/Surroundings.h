#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/UserAccount.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "WsparoCompanion/Language.h"
#include "WsparoCompanion/Output.h"

namespace orv::companion {

/// A command that cannot go on; what() tells the person why, in their language.
class CommandFailure : public std::runtime_error {
public:
    CommandFailure(int status, const std::string& text)
        : std::runtime_error(text), exitStatus(status) {}

    int status() const { return exitStatus; }

private:
    int exitStatus;
};

/// What every command works with.
struct Surroundings {
    SystemRoot root;
    /// The user's home in the role of "/": what is at "/Library" for the Mac is the user's own
    /// here. Nothing when it is not known.
    std::optional<SystemRoot> home;
    std::optional<std::string> environmentSettingsPath;
    UserAccount user;
    Language language = Language::polish;
    Clock& clock;
    const ViewerLogger& logger;  // the user's own log, not the daemon's
    Output& out;
    Output& err;

    template <typename... Values>
    std::string say(Bilingual text, const Values&... values) const {
        return filled(language, text, values...);
    }

    template <typename... Values>
    CommandFailure failure(int status, Bilingual text, const Values&... values) const {
        return {status, say(text, values...)};
    }
};

}  // namespace orv::companion
