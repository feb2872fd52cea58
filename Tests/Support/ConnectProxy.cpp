#include "Support/ConnectProxy.h"

#include <array>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <fmt/format.h>

#include "OrvPlatform/Task.h"

namespace orv::test {

namespace beast = boost::beast;
using asio::ip::tcp;

namespace {

using SharedSocket = std::shared_ptr<tcp::socket>;

Task<void> pump(SharedSocket from, SharedSocket to) {
    std::array<char, 16384> bytes{};
    try {
        for (;;) {
            const std::size_t count =
                co_await from->async_read_some(asio::buffer(bytes), asio::use_awaitable);
            co_await asio::async_write(*to, asio::buffer(bytes.data(), count), asio::use_awaitable);
        }
    } catch (const std::exception&) {
        boost::system::error_code ignored;
        from->close(ignored);
        to->close(ignored);
    }
}

}  // namespace

struct ConnectProxy::State {
    explicit State(asio::io_context& context)
        : acceptor(context, tcp::endpoint(asio::ip::address_v4::loopback(), 0)),
          port(acceptor.local_endpoint().port()) {}

    static Task<void> accept(std::shared_ptr<State> proxy);
    static Task<void> serve(std::shared_ptr<State> proxy, SharedSocket client);

    tcp::acceptor acceptor;
    std::uint16_t port;
    int refusal = 0;
    std::vector<Tunnel> tunnels;
};

Task<void> ConnectProxy::State::accept(std::shared_ptr<State> proxy) {
    for (;;) {
        tcp::socket socket = co_await proxy->acceptor.async_accept(asio::use_awaitable);
        socket.set_option(tcp::no_delay(true));
        auto client = std::make_shared<tcp::socket>(std::move(socket));
        asio::co_spawn(proxy->acceptor.get_executor(), serve(proxy, client), asio::detached);
    }
}

Task<void> ConnectProxy::State::serve(std::shared_ptr<State> proxy, SharedSocket client) {
    beast::flat_buffer buffer;
    beast::http::request_parser<beast::http::empty_body> parser;
    co_await beast::http::async_read_header(*client, buffer, parser, asio::use_awaitable);
    const std::string target(parser.get().target());
    proxy->tunnels.push_back(
        {target, std::string(parser.get()[beast::http::field::proxy_authorization])});

    const int status = proxy->refusal != 0 ? proxy->refusal : 200;
    const std::string answer =
        fmt::format("HTTP/1.1 {} Answer\r\nContent-Length: 0\r\n\r\n", status);
    const std::string tunnelAnswer = fmt::format("HTTP/1.1 {} Answer\r\n\r\n", status);
    co_await asio::async_write(*client, asio::buffer(status == 200 ? tunnelAnswer : answer),
                               asio::use_awaitable);
    if (status != 200) co_return;
    const int port = std::stoi(target.substr(target.rfind(':') + 1));
    auto server = std::make_shared<tcp::socket>(client->get_executor());
    const tcp::endpoint endpoint(asio::ip::address_v4::loopback(),
                                 static_cast<std::uint16_t>(port));
    co_await server->async_connect(endpoint, asio::use_awaitable);
    server->set_option(tcp::no_delay(true));
    asio::co_spawn(client->get_executor(), pump(client, server), asio::detached);
    asio::co_spawn(client->get_executor(), pump(server, client), asio::detached);
}

ConnectProxy::ConnectProxy(asio::io_context& context) : state(std::make_shared<State>(context)) {
    asio::co_spawn(context, State::accept(state), asio::detached);
}

ConnectProxy::~ConnectProxy() {
    state->acceptor.close();
}

std::uint16_t ConnectProxy::port() const {
    return state->port;
}

void ConnectProxy::refuseWith(int status) {
    state->refusal = status;
}

const std::vector<ConnectProxy::Tunnel>& ConnectProxy::tunnels() const {
    return state->tunnels;
}

}  // namespace orv::test
