#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

namespace orv::test {

/// A loopback HTTP proxy on the test's own loop that makes tunnels to loopback ports, whatever host
/// is asked for. The loop's context must outlive it.
class ConnectProxy {
public:
    struct Tunnel {
        std::string target;         // as asked for: "desk.example:443"
        std::string authorization;  // the Proxy-Authorization header, or empty
    };

    explicit ConnectProxy(boost::asio::io_context& context);
    ~ConnectProxy();
    ConnectProxy(const ConnectProxy&) = delete;
    ConnectProxy& operator=(const ConnectProxy&) = delete;

    std::uint16_t port() const;

    /// Answers with this status instead of making a tunnel.
    void refuseWith(int status);

    const std::vector<Tunnel>& tunnels() const;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orv::test
