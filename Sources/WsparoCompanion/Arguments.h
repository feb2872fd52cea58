#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "WsparoCompanion/Language.h"

namespace orv::companion {

/// A command line that is not understood; what() tells the person why, in their language.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Command {
    help,
    version,
    status,
    chatSend,
    chatList,
    chatWatch,
    updateCheck,
    updateStatus,
    ticketNew,
    login,
    logout,
    tickets,
    doctor,
};

/// A command line that is understood: every option is one of the command's, with as many values
/// as it takes.
struct Arguments {
    Command command = Command::help;
    std::map<std::string, std::vector<std::string>> options;  // "--attach": {"a.png", "b.txt"}
    std::vector<std::string> words;                           // what is no option

    bool has(const std::string& option) const { return options.contains(option); }
    /// The last one that was given.
    std::optional<std::string> value(const std::string& option) const;
    std::vector<std::string> values(const std::string& option) const;
    /// Throws UsageError when it was given and is not a whole number from 1 to the most.
    std::optional<int> number(const std::string& option, int most, Language language) const;
};

/// "--help", "-h" and "--version" win over everything before "--". Throws UsageError.
Arguments parseArguments(const std::vector<std::string>& given, Language language);

}  // namespace orv::companion
