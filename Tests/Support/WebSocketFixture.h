#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "OrvPlatform/BeastWebSocket.h"
#include "OrvPlatform/UrlError.h"
#include "Support/FakeClock.h"
#include "Support/TestCertificates.h"
#include "Support/TestLoop.h"
#include "Support/TestWebSocketServer.h"

namespace orv::test {

/// The real connector against a loopback server, over a clock that only the test moves.
class WebSocketFixture : public testing::Test {
protected:
    static TestCertificates& certificates() {
        static TestCertificates made;
        return made;
    }

    static const TestIdentity& serverIdentity() {
        static const TestIdentity made = certificates().leaf({"127.0.0.1", "localhost"});
        return made;
    }

    FakeClock clock;
    TestLoop loop;
    std::unique_ptr<TlsTrust> trust = certificates().trust();
    std::optional<ProxyAddress> proxy;
    BeastWebSocketConnector connector{
        {*trust, clock, [this](const std::string&, std::uint16_t) { return proxy; }, {}}};
    std::unique_ptr<TestWebSocketServer> server;

    void serve(TestWebSocketServer::Script script) {
        server = std::make_unique<TestWebSocketServer>(loop.executor(), serverIdentity(),
                                                       std::move(script));
    }

    std::unique_ptr<WebSocketConnection> connect() {
        return loop.run(connector.connect({server->url(), {}}));
    }

    /// A connection to a server that does this from the beginning.
    std::unique_ptr<WebSocketConnection> connectTo(TestWebSocketServer::Script script) {
        serve(std::move(script));
        return connect();
    }

    ServerConnection& peer() { return *server->connections().at(0); }

    std::string receiveText(WebSocketConnection& connection) {
        return std::get<WebSocketMessage>(loop.run(connection.receive())).data;
    }

    int receiveCloseCode(WebSocketConnection& connection) {
        return std::get<WebSocketClosed>(loop.run(connection.receive())).code;
    }

    /// What the UrlError says that the task ends with.
    template <typename Value>
    std::string failureOf(Task<Value> task) {
        try {
            loop.run(std::move(task));
        } catch (const UrlError& error) {
            return error.what();
        }
        return "no failure";
    }

    /// Moves the clock from sleeper to sleeper; all that follows has happened afterwards.
    void letTimePass(std::chrono::nanoseconds span) {
        const auto limit = clock.monotonicNow().time_since_epoch() + span;
        do {
            settle();
        } while (clock.wakeNext(limit));
        settle();
    }

    /// On the loopback interface what was sent is there to be read at once.
    void settle() { loop.runReady(); }
};

}  // namespace orv::test
