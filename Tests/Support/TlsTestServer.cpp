#include "Support/TlsTestServer.h"

#include <cctype>
#include <string_view>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <fmt/format.h>

#include "OrvPlatform/Task.h"

namespace orv::test {

namespace beast = boost::beast;
using asio::ip::tcp;
using TlsStream = asio::ssl::stream<tcp::socket>;

namespace {

std::string lowerCased(std::string_view text) {
    std::string copy(text);
    for (char& c : copy)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return copy;
}

Task<ReceivedRequest> readRequest(TlsStream& stream, beast::flat_buffer& buffer) {
    beast::http::request_parser<beast::http::string_body> parser;
    parser.body_limit(boost::none);
    co_await beast::http::async_read(stream, buffer, parser, asio::use_awaitable);
    auto& message = parser.get();
    ReceivedRequest request;
    request.method = std::string(message.method_string());
    request.target = std::string(message.target());
    for (const auto& field : message) {
        request.headers[lowerCased(std::string_view(field.name_string()))] = field.value();
    }
    request.body = std::move(message.body());
    co_return request;
}

Task<void> waitForever() {
    asio::steady_timer timer(co_await asio::this_coro::executor,
                             asio::steady_timer::time_point::max());
    co_await timer.async_wait(asio::use_awaitable);
}

Task<void> writeSlowly(TlsStream& stream, const ScriptedAnswer& answer) {
    asio::steady_timer timer(co_await asio::this_coro::executor);
    for (const char& byte : answer.bytes) {
        co_await asio::async_write(stream, asio::buffer(&byte, 1), asio::use_awaitable);
        timer.expires_after(answer.pauseBetweenBytes);
        co_await timer.async_wait(asio::use_awaitable);
    }
}

Task<void> write(TlsStream& stream, const ScriptedAnswer& answer) {
    if (answer.pauseBetweenBytes.count() > 0) {
        co_await writeSlowly(stream, answer);
    } else {
        co_await asio::async_write(stream, asio::buffer(answer.bytes), asio::use_awaitable);
    }
}

Task<void> finish(TlsStream& stream, ScriptedAnswer::Then then) {
    using Then = ScriptedAnswer::Then;
    if (then == Then::silence) co_await waitForever();
    if (then == Then::close) co_await stream.async_shutdown(asio::use_awaitable);
    if (then == Then::reset) stream.next_layer().set_option(tcp::socket::linger(true, 0));
    stream.next_layer().close();
}

}  // namespace

std::string httpAnswer(int status, const std::string& body, const std::string& headerLines) {
    return fmt::format("HTTP/1.1 {} Answer\r\nContent-Length: {}\r\n{}\r\n{}", status, body.size(),
                       headerLines, body);
}

struct TlsTestServer::State {
    State(asio::io_context& context, const TestIdentity& identity, Script answers)
        : script(std::move(answers)),
          tls(asio::ssl::context::tls_server),
          acceptor(context, tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
          port(acceptor.local_endpoint().port()) {
        tls.use_certificate_chain_file(identity.certificateFile);
        tls.use_private_key_file(identity.keyFile, asio::ssl::context::pem);
    }

    static Task<void> accept(std::shared_ptr<State> server);
    static Task<void> serve(std::shared_ptr<State> server, tcp::socket socket);
    static Task<void> answerAll(std::shared_ptr<State> server, TlsStream& stream);

    Script script;
    asio::ssl::context tls;
    tcp::acceptor acceptor;
    std::uint16_t port;
    bool isSilent = false;
    int connections = 0;
    int openConnections = 0;
    int handshakes = 0;
    int resumedSessions = 0;
    std::vector<ReceivedRequest> requests;
};

Task<void> TlsTestServer::State::accept(std::shared_ptr<State> server) {
    for (;;) {
        tcp::socket socket = co_await server->acceptor.async_accept(asio::use_awaitable);
        socket.set_option(tcp::no_delay(true));
        ++server->connections;
        // A connection ends in whatever way its client likes; the test looks at the client.
        asio::co_spawn(server->acceptor.get_executor(), serve(server, std::move(socket)),
                       asio::detached);
    }
}

Task<void> TlsTestServer::State::serve(std::shared_ptr<State> server, tcp::socket socket) {
    ++server->openConnections;
    try {
        if (server->isSilent) co_await waitForever();
        TlsStream stream(std::move(socket), server->tls);
        co_await stream.async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
        ++server->handshakes;
        server->resumedSessions += SSL_session_reused(stream.native_handle());
        Task<void> answers = answerAll(server, stream);
        co_await std::move(answers);
    } catch (const std::exception&) {
        // Ended by the client.
    }
    --server->openConnections;
}

Task<void> TlsTestServer::State::answerAll(std::shared_ptr<State> server, TlsStream& stream) {
    beast::flat_buffer buffer;
    for (;;) {
        ReceivedRequest request = co_await readRequest(stream, buffer);
        const ScriptedAnswer answer = server->script(request);
        server->requests.push_back(std::move(request));
        co_await write(stream, answer);
        if (answer.then == ScriptedAnswer::Then::readNext) continue;
        co_await finish(stream, answer.then);
        co_return;
    }
}

TlsTestServer::TlsTestServer(asio::io_context& context, const TestIdentity& identity, Script script)
    : state(std::make_shared<State>(context, identity, std::move(script))) {
    asio::co_spawn(context, State::accept(state), asio::detached);
}

TlsTestServer::TlsTestServer(asio::io_context& context, const TestIdentity& identity,
                             ScriptedAnswer answer)
    : TlsTestServer(context, identity,
                    [answer = std::move(answer)](const ReceivedRequest&) { return answer; }) {
}

TlsTestServer::~TlsTestServer() {
    state->acceptor.close();
}

std::uint16_t TlsTestServer::port() const {
    return state->port;
}

std::string TlsTestServer::url(const std::string& path, const std::string& host) const {
    return fmt::format("https://{}:{}{}", host, state->port, path);
}

SSL_CTX* TlsTestServer::tls() {
    return state->tls.native_handle();
}

void TlsTestServer::staySilent() {
    state->isSilent = true;
}

int TlsTestServer::connections() const {
    return state->connections;
}

int TlsTestServer::openConnections() const {
    return state->openConnections;
}

int TlsTestServer::handshakes() const {
    return state->handshakes;
}

int TlsTestServer::resumedSessions() const {
    return state->resumedSessions;
}

const std::vector<ReceivedRequest>& TlsTestServer::requests() const {
    return state->requests;
}

}  // namespace orv::test
