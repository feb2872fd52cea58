#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include "OrvPlatform/Task.h"
#include "OrvPlatform/TaskGroup.h"
#include "Support/TestCertificates.h"

namespace orv::test {

/// One connection as the server sees it. Every step throws boost::system::system_error.
class ServerConnection {
public:
    using Request = boost::beast::http::request<boost::beast::http::string_body>;

    ServerConnection(asio::ip::tcp::socket accepted, asio::ssl::context& context);
    ~ServerConnection();
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    Request request;              // the upgrade's
    int pings = 0;                // seen by receive()
    std::uint16_t closeCode = 0;  // of the client's close frame; 0 while there is none

    /// TLS handshake and upgrade; compression is used when the client offers it and it is wanted.
    Task<void> upgrade(bool withCompression = false);

    /// TLS handshake and the client's request, which is not answered yet.
    Task<void> readRequest();

    /// A whole text message, compressed where the upgrade agreed on it.
    Task<void> send(std::string text);

    /// Bytes of the server's own making, under TLS.
    Task<void> sendRaw(std::string bytes);

    /// The next message of the client; pings before it are answered and counted. Throws when the
    /// connection ends.
    Task<std::string> receive();

    /// Reads (and answers pings) until the connection ends.
    Task<void> readToTheEnd();

    /// Reads until the connection ends and answers nothing.
    Task<void> swallowToTheEnd();

    void reset();

    asio::ip::tcp::socket& tcp();

private:
    struct Streams;
    std::unique_ptr<Streams> streams;
};

/// One unmasked frame: the first byte (FIN and opcode) as given, the length in its shortest form.
std::string serverFrame(std::uint8_t firstByte, std::string_view payload);

/// A TLS WebSocket server on a port of its own of the loopback address; every connection runs the
/// script, and is dropped when the script ends.
class TestWebSocketServer {
public:
    using Script = std::function<Task<void>(std::shared_ptr<ServerConnection>)>;

    TestWebSocketServer(asio::any_io_executor executor, const TestIdentity& identity,
                        Script script);
    ~TestWebSocketServer();
    TestWebSocketServer(const TestWebSocketServer&) = delete;
    TestWebSocketServer& operator=(const TestWebSocketServer&) = delete;

    std::string url(const std::string& pathAndQuery = "/") const;
    std::uint16_t port() const;

    /// All connections so far; they stay readable after their end.
    const std::vector<std::shared_ptr<ServerConnection>>& connections() const;

private:
    struct State;
    static Task<void> acceptForever(std::shared_ptr<State> state);

    std::shared_ptr<State> state;
    TaskGroup tasks;
};

}  // namespace orv::test
