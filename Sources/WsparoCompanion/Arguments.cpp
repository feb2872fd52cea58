#include "WsparoCompanion/Arguments.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <utility>

#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

struct Option {
    std::string_view name;
    enum class Kind { flag, value, list } kind = Kind::value;
};

struct CommandShape {
    Command command;
    std::vector<std::string_view> names;  // "chat", "send"
    std::vector<Option> options;
    std::size_t words = 0;  // exactly
};

constexpr Option::Kind flag = Option::Kind::flag;
constexpr Option::Kind list = Option::Kind::list;

const std::vector<CommandShape>& shapes() {
    static const std::vector<CommandShape> all{
        {Command::status, {"status"}, {{"--json", flag}}},
        {Command::chatSend, {"chat", "send"}, {{"--conversation"}, {"--sender"}}, 1},
        {Command::chatList, {"chat", "list"}, {{"--conversation"}, {"--json", flag}}},
        {Command::chatWatch,
         {"chat", "watch"},
         {{"--conversation"}, {"--all", flag}, {"--json", flag}}},
        {Command::updateCheck, {"update", "check"}, {{"--wait"}}},
        {Command::updateStatus, {"update", "status"}, {{"--json", flag}}},
        {Command::ticketNew,
         {"ticket", "new"},
         {{"--subject"},
          {"--description"},
          {"--name"},
          {"--email"},
          {"--cc", list},
          {"--phone"},
          {"--priority"},
          {"--type"},
          {"--attach", list}}},
        {Command::login, {"login"}, {{"--email"}}},
        {Command::logout, {"logout"}, {}},
        {Command::tickets,
         {"tickets"},
         {{"--follow", flag}, {"--all", flag}, {"--interval"}, {"--json", flag}}},
        {Command::doctor, {"doctor"}, {}},
    };
    return all;
}

bool isCalled(const CommandShape& shape, const std::vector<std::string>& given) {
    return given.size() >= shape.names.size() &&
           std::equal(shape.names.begin(), shape.names.end(), given.begin());
}

const CommandShape& shapeOf(const std::vector<std::string>& given, Language language) {
    for (const CommandShape& shape : shapes()) {
        if (isCalled(shape, given)) return shape;
    }
    const bool isGroup =
        std::any_of(shapes().begin(), shapes().end(), [&](const CommandShape& shape) {
            return shape.names.size() > 1 && shape.names[0] == given[0];
        });
    const std::string called = isGroup && given.size() > 1 ? given[0] + " " + given[1] : given[0];
    throw UsageError(
        filled(language, isGroup ? texts::incompleteCommand : texts::unknownCommand, called));
}

/// What is left of the command line behind the command's name, taken piece by piece.
class Reader {
public:
    Reader(const CommandShape& shape, const std::vector<std::string>& given, Language language)
        : shape(shape), given(given), language(language), next(shape.names.size()) {
        result.command = shape.command;
    }

    Arguments read() && {
        while (next < given.size()) {
            const std::string& piece = given[next++];
            if (isOnlyWords || piece == "-" || !piece.starts_with("-")) {
                result.words.push_back(piece);
            } else if (piece == "--") {
                isOnlyWords = true;
            } else {
                takeOption(piece);
            }
        }
        if (result.words.size() > shape.words) {
            throw UsageError(filled(language, texts::tooManyWords, result.words[shape.words]));
        }
        if (result.words.size() < shape.words) {
            throw UsageError(texts::missingText.in(language));
        }
        return std::move(result);
    }

private:
    void takeOption(const std::string& piece) {
        const std::size_t equals = piece.find('=');
        const std::string name = piece.substr(0, equals);
        const auto option = std::find_if(shape.options.begin(), shape.options.end(),
                                         [&](const Option& one) { return one.name == name; });
        if (option == shape.options.end()) {
            const bool isSecret = name == "--password" || name == "-p";
            throw UsageError(
                filled(language, isSecret ? texts::noPasswordHere : texts::unknownOption, name));
        }
        std::vector<std::string>& values = result.options[name];
        if (option->kind == flag) {
            if (equals != std::string::npos) {
                throw UsageError(filled(language, texts::optionTakesNoValue, name));
            }
            return;
        }
        if (option->kind != list && !values.empty()) {
            throw UsageError(filled(language, texts::optionGivenTwice, name));
        }
        if (equals != std::string::npos) {
            values.push_back(piece.substr(equals + 1));
        } else if (next < given.size()) {
            values.push_back(given[next++]);
        } else {
            throw UsageError(filled(language, texts::optionNeedsValue, name));
        }
    }

    const CommandShape& shape;
    const std::vector<std::string>& given;
    Language language;
    std::size_t next;
    bool isOnlyWords = false;
    Arguments result;
};

}  // namespace

std::optional<std::string> Arguments::value(const std::string& option) const {
    const auto found = options.find(option);
    if (found == options.end() || found->second.empty()) return std::nullopt;
    return found->second.back();
}

std::vector<std::string> Arguments::values(const std::string& option) const {
    const auto found = options.find(option);
    return found == options.end() ? std::vector<std::string>() : found->second;
}

std::optional<int> Arguments::number(const std::string& option, int most, Language language) const {
    const std::optional<std::string> text = value(option);
    if (!text) return std::nullopt;
    int number = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, number);
    if (error != std::errc() || stop != end || number < 1 || number > most) {
        throw UsageError(filled(language, texts::notANumber, option, most, *text));
    }
    return number;
}

Arguments parseArguments(const std::vector<std::string>& given, Language language) {
    if (!given.empty() && given[0] == "help") return {Command::help, {}, {}};
    for (const std::string& piece : given) {
        if (piece == "--") break;
        if (piece == "--help" || piece == "-h") return {Command::help, {}, {}};
        if (piece == "--version") return {Command::version, {}, {}};
    }
    if (given.empty()) throw UsageError(texts::noCommand.in(language));
    return Reader(shapeOf(given, language), given, language).read();
}

}  // namespace orv::companion
