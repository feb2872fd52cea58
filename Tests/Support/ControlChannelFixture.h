#pragma once

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "OrvPlatform/Cancellation.h"
#include "OrvViewerShared/AgentConnection.h"
#include "OrvViewerShared/ControlChannel.h"
#include "Support/SocketAgentFixture.h"

namespace orv {

/// A device token until the helpdesk calls it invalid.
class FakeCredentials final : public ControlCredentials {
public:
    std::optional<std::string> deviceToken = "device";

    WebSocketRequest authenticatedWebSocketRequest(std::string url) override {
        WebSocketRequest request;
        request.url = std::move(url);
        request.headers = {
            {"Authorization", deviceToken ? "Device " + *deviceToken : "Bearer viewer"}};
        return request;
    }

    bool recoverInvalidDeviceToken(const std::exception& error) override {
        if (classify(error) != AgentConnectionIssue::invalidDeviceToken) return false;
        deviceToken.reset();
        return true;
    }
};

/// A control channel over scripted connections and driven time.
class ControlChannelFixture : public SocketAgentFixture {
protected:
    static constexpr std::chrono::seconds heartbeatInterval{300};
    static constexpr const char* connecting =
        "[INFO] Control WSS connecting: wss://desk.example/api/agent/control";

    FakeCredentials credentials;
    ViewerSettings settings = defaultSettings();
    std::optional<AgentIdentity> identity = AgentIdentity{"mac-1", "123 456", "mac.local", "anna"};
    std::vector<std::string> errors;    // given to the connection error handler
    std::vector<std::string> sessions;  // remote sessions: "begin id", "end id"
    std::vector<MonotonicTime> wakeUps;
    std::chrono::nanoseconds wakeHandlerTakes{0};
    bool wakeHandlerFails = false;
    std::chrono::nanoseconds sessionTakes{0};
    std::optional<ControlChannel> channel;
    std::optional<BackgroundTask> running;

    static ViewerSettings defaultSettings() {
        ViewerSettings made;
        made.serverBaseUrl = "https://desk.example";
        made.heartbeatIntervalSeconds = heartbeatInterval.count();
        made.controlReconnectMaxSeconds = 60;
        return made;
    }

    void start() {
        const auto handleSession = [this](RemoteSessionRequest request) {
            return session(request.sessionPublicId);
        };
        const auto recordError = [this](const std::exception& error) {
            errors.emplace_back(error.what());
        };
        channel.emplace(ControlChannel::Parts{settings, credentials, sockets, clock, logger,
                                              handleSession, recordError});
        running.emplace(
            loop, channel->runForever([this] { return identity; }, [this] { return wake(); }));
        loop.runReady();
    }

    void stop() {
        running->cancel();
        loop.runReady();
    }

    Task<void> wake() {
        wakeUps.push_back(clock.monotonicNow());
        co_await clock.sleepFor(wakeHandlerTakes);
        if (wakeHandlerFails) throw std::runtime_error("out of luck");
    }

    Task<void> session(std::string id) {
        sessions.push_back("begin " + id);
        try {
            co_await clock.sleepFor(sessionTakes);
        } catch (const std::exception& error) {
            sessions.push_back((isCancellation(error) ? "cancelled " : "failed ") + id);
            throw;
        }
        sessions.push_back("end " + id);
    }

    FakeSocket& socket(std::size_t index = 0) { return *sockets.opened.at(index); }

    /// A connection on which the helpdesk says these from the beginning.
    void startWith(const std::vector<std::string>& texts) {
        const auto prepared = sockets.thenOpen();
        for (const std::string& text : texts)
            prepared->says(text);
        start();
    }

    /// The waits between connections, heartbeats left out.
    std::vector<std::chrono::nanoseconds> waits() const {
        std::vector<std::chrono::nanoseconds> result;
        std::copy_if(clock.sleeps.begin(), clock.sleeps.end(), std::back_inserter(result),
                     [](std::chrono::nanoseconds sleep) { return sleep != heartbeatInterval; });
        return result;
    }
};

}  // namespace orv
