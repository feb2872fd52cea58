#include "Support/TestWebSocketServer.h"

#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <fmt/format.h>

#include "OrvPlatform/TlsStream.h"

namespace orv::test {

namespace {

namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using asio::ip::tcp;

/// A script may end with the connection.
void ignoreFailure(const std::string&, const std::exception&) {
}

}  // namespace

/// Kept from the header, which many tests include.
struct ServerConnection::Streams {
    websocket::stream<TlsStream> socket;
    TlsStream& tls() { return socket.next_layer(); }
};

ServerConnection::ServerConnection(tcp::socket accepted, asio::ssl::context& context)
    : streams(new Streams{websocket::stream<TlsStream>(std::move(accepted), context)}) {
}

ServerConnection::~ServerConnection() = default;

tcp::socket& ServerConnection::tcp() {
    return streams->tls().next_layer();
}

Task<void> ServerConnection::readRequest() {
    co_await streams->tls().async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
    boost::beast::flat_buffer buffer;
    co_await http::async_read(streams->tls(), buffer, request, asio::use_awaitable);
}

Task<void> ServerConnection::upgrade(bool withCompression) {
    co_await readRequest();
    websocket::permessage_deflate compression;
    compression.server_enable = withCompression;
    streams->socket.set_option(compression);
    streams->socket.control_callback([this](websocket::frame_type kind, boost::beast::string_view) {
        if (kind == websocket::frame_type::ping) ++pings;
        if (kind == websocket::frame_type::close) closeCode = streams->socket.reason().code;
    });
    co_await streams->socket.async_accept(request, asio::use_awaitable);
}

Task<void> ServerConnection::send(std::string text) {
    const auto buffer = asio::buffer(text);
    co_await streams->socket.async_write(buffer, asio::use_awaitable);
}

Task<void> ServerConnection::sendRaw(std::string bytes) {
    const auto buffer = asio::buffer(bytes);
    co_await asio::async_write(streams->tls(), buffer, asio::use_awaitable);
}

Task<std::string> ServerConnection::receive() {
    boost::beast::flat_buffer buffer;
    co_await streams->socket.async_read(buffer, asio::use_awaitable);
    co_return boost::beast::buffers_to_string(buffer.data());
}

Task<void> ServerConnection::readToTheEnd() {
    for (;;)
        co_await receive();
}

Task<void> ServerConnection::swallowToTheEnd() {
    std::string bytes(4096, '\0');
    const auto buffer = asio::buffer(bytes);
    for (;;)
        co_await streams->tls().async_read_some(buffer, asio::use_awaitable);
}

void ServerConnection::reset() {
    tcp().set_option(asio::socket_base::linger(true, 0));
    tcp().close();
}

std::string serverFrame(std::uint8_t firstByte, std::string_view payload) {
    std::string frame(1, static_cast<char>(firstByte));
    const std::size_t length = payload.size();
    const auto appendBigEndian = [&](int bytes) {
        for (int i = bytes - 1; i >= 0; --i)
            frame += static_cast<char>(length >> (8 * i) & 0xff);
    };
    if (length < 126) {
        appendBigEndian(1);
    } else if (length < 65536) {
        frame += static_cast<char>(126);
        appendBigEndian(2);
    } else {
        frame += static_cast<char>(127);
        appendBigEndian(8);
    }
    frame += payload;
    return frame;
}

/// Shared with the accepting coroutine, which outlives the server by a moment.
struct TestWebSocketServer::State {
    explicit State(const asio::any_io_executor& executor)
        : context(asio::ssl::context::tls_server),
          acceptor(executor, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {}

    asio::ssl::context context;
    tcp::acceptor acceptor;
    Script script;
    std::vector<std::shared_ptr<ServerConnection>> accepted;
    std::function<void(Task<void>)> spawn;
};

TestWebSocketServer::TestWebSocketServer(asio::any_io_executor executor,
                                         const TestIdentity& identity, Script script)
    : state(std::make_shared<State>(executor)), tasks(executor, ignoreFailure) {
    state->context.use_certificate_chain_file(identity.certificateFile);
    state->context.use_private_key_file(identity.keyFile, asio::ssl::context::pem);
    state->script = std::move(script);
    state->spawn = [this](Task<void> task) { tasks.spawn("script", std::move(task)); };
    tasks.spawn("accepting", acceptForever(state));
}

TestWebSocketServer::~TestWebSocketServer() {
    state->spawn = [](const Task<void>&) {};
    state->acceptor.close();
}

std::string TestWebSocketServer::url(const std::string& pathAndQuery) const {
    return fmt::format("wss://127.0.0.1:{}{}", port(), pathAndQuery);
}

std::uint16_t TestWebSocketServer::port() const {
    return state->acceptor.local_endpoint().port();
}

const std::vector<std::shared_ptr<ServerConnection>>& TestWebSocketServer::connections() const {
    return state->accepted;
}

Task<void> TestWebSocketServer::acceptForever(std::shared_ptr<State> state) {
    for (;;) {
        tcp::socket socket = co_await state->acceptor.async_accept(asio::use_awaitable);
        socket.set_option(tcp::no_delay(true));
        const auto connection =
            std::make_shared<ServerConnection>(std::move(socket), state->context);
        state->accepted.push_back(connection);
        state->spawn(state->script(connection));
    }
}

}  // namespace orv::test
