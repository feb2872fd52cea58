#include "WsparoCompanion/ChatCommands.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <unistd.h>
#include <utility>

#include "OrvPlatform/Deadline.h"
#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/FolderWatch.h"
#include "OrvPlatform/TerminalInput.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/Uuid.h"
#include "OrvViewerShared/RemoteChatStore.h"
#include "WsparoCompanion/ChatInbox.h"
#include "WsparoCompanion/ChatTexts.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Interruptible.h"
#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

// The system's notifications are prompt; this is for file systems that have none.
constexpr std::chrono::seconds lookAgainAfter{30};
constexpr std::chrono::seconds tryAgainAfter{1};

RemoteChatStore storeOf(const Surroundings& surroundings) {
    return {surroundings.root, surroundings.clock, surroundings.logger};
}

bool hasFolder(const Surroundings& surroundings) {
    return isDirectory(surroundings.root.locate(RemoteChatStore::directory));
}

std::string senderName(const Surroundings& surroundings, const Arguments& arguments) {
    if (const auto given = arguments.value("--sender")) return *given;
    const UserAccount& user = surroundings.user;
    return user.fullName.empty() ? user.name : user.fullName;
}

std::string messageToSend(const Surroundings& surroundings, const std::string& word) {
    const std::string text =
        word == "-" ? trimmed(readToEnd(STDIN_FILENO, RemoteChatStore::messageLimitBytes)) : word;
    if (trimmed(text).empty()) throw UsageError(surroundings.say(texts::chatEmptyText));
    return text;
}

/// Shows messages of one conversation, or of all, in the form that was asked for.
class MessageView {
public:
    MessageView(const Surroundings& surroundings, const Arguments& arguments)
        : surroundings(surroundings),
          conversation(arguments.value("--conversation")),
          isJson(arguments.has("--json")) {}

    /// Whether it was one of those that were asked for.
    bool show(const RemoteChatMessage& message) const {
        if (conversation && message.publicId != *conversation) return false;
        surroundings.out.line(isJson ? messageJsonLine(message)
                                     : messageText(message, surroundings));
        return true;
    }

    bool isForScripts() const { return isJson; }

private:
    const Surroundings& surroundings;
    std::optional<std::string> conversation;
    bool isJson;
};

/// "wsparo chat watch" at work. It must outlive its task.
class ChatWatch {
public:
    ChatWatch(const Surroundings& surroundings, const MessageView& view, ChatInbox& inbox)
        : surroundings(surroundings), view(view), inbox(inbox) {}

    Task<int> runForever() {
        const asio::any_io_executor executor = co_await asio::this_coro::executor;
        for (;;) {
            // The watch begins before the folder is read, so that no message falls in between.
            std::optional<FolderWatch> watch = beginWatch(executor);
            bool goesOn = true;
            while (goesOn) {
                showNew();
                goesOn = false;
                if (!watch) break;
                Task<bool> change = watch->changed();
                const std::optional<bool> news =
                    co_await finishedWithin(surroundings.clock, lookAgainAfter, std::move(change));
                goesOn = news.value_or(true);
            }
            co_await surroundings.clock.sleepFor(tryAgainAfter);
        }
    }

private:
    std::optional<FolderWatch> beginWatch(const asio::any_io_executor& executor) const {
        try {
            const std::string folder = surroundings.root.locate(RemoteChatStore::directory);
            return std::optional<FolderWatch>(std::in_place, executor, folder);
        } catch (const FileError&) {
            return std::nullopt;  // it is not there yet, or the system watches too much already
        }
    }

    void showNew() {
        if (!hasFolder(surroundings)) return;
        for (const RemoteChatMessage& message : inbox.takeNew())
            view.show(message);
    }

    const Surroundings& surroundings;
    const MessageView& view;
    ChatInbox& inbox;
};

}  // namespace

int sendChat(const Surroundings& surroundings, const Arguments& arguments) {
    const std::optional<std::string> conversation = arguments.value("--conversation");
    if (!conversation) {
        throw UsageError(surroundings.say(texts::missingOption, "--conversation"));
    }
    if (conversation->empty()) throw UsageError(surroundings.say(texts::chatNoConversation));
    RemoteChatMessage message{randomUuid(),
                              *conversation,
                              RemoteChatMessage::outgoing,
                              senderName(surroundings, arguments),
                              messageToSend(surroundings, arguments.words.at(0)),
                              surroundings.clock.now()};
    for (const std::string* text : {&message.publicId, &message.sender, &message.text}) {
        if (!isValidUtf8(*text)) throw UsageError(surroundings.say(texts::invalidUtf8));
    }
    if (prettyJson(message).size() > RemoteChatStore::messageLimitBytes) {
        throw UsageError(surroundings.say(texts::chatTooLong));
    }
    storeOf(surroundings).save(message);
    surroundings.out.line(surroundings.say(texts::chatQueued));
    return exitCode::success;
}

int listChat(const Surroundings& surroundings, const Arguments& arguments) {
    const RemoteChatStore store = storeOf(surroundings);
    const MessageView view(surroundings, arguments);
    std::vector<std::string> paths;
    if (hasFolder(surroundings)) {
        paths = store.incomingMessageFiles();
        const std::vector<std::string> outgoing = store.outgoingMessageFiles();
        paths.insert(paths.end(), outgoing.begin(), outgoing.end());
    }
    bool isEmpty = true;
    for (const std::string& path : byTime(std::move(paths))) {
        const std::optional<RemoteChatMessage> message = store.read(path);
        if (message && view.show(*message)) isEmpty = false;
    }
    if (isEmpty && !view.isForScripts()) {
        surroundings.out.line(surroundings.say(texts::chatEmpty));
    }
    return exitCode::success;
}

int watchChat(const Surroundings& surroundings, const Arguments& arguments) {
    const RemoteChatStore store = storeOf(surroundings);
    const MessageView view(surroundings, arguments);
    ChatInbox inbox(store);
    if (!arguments.has("--all") && hasFolder(surroundings)) inbox.skipAll();
    if (surroundings.err.isTerminal()) {
        surroundings.err.line(surroundings.say(texts::chatWatching));
    }
    Interruptible thread(exitCode::success);
    ChatWatch watch(surroundings, view, inbox);
    return thread.run(watch.runForever());
}

}  // namespace orv::companion
