#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "Support/TestCertificates.h"

using SSL_CTX = struct ssl_ctx_st;

namespace orv::test {

struct ReceivedRequest {
    std::string method;
    std::string target;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
};

/// What a server sends for a request, and what becomes of the connection then.
struct ScriptedAnswer {
    enum class Then {
        readNext,  // keep-alive
        close,     // with TLS's own goodbye
        cut,       // the connection ends without one
        reset,
        silence,  // stays open and says nothing more
    };

    std::string bytes;
    Then then = Then::readNext;
    std::chrono::milliseconds pauseBetweenBytes{0};
};

/// A whole answer with its length; further header lines each end in "\r\n".
std::string httpAnswer(int status, const std::string& body = "",
                       const std::string& headerLines = "");

/// An HTTPS server on 127.0.0.1 and the test's own loop that answers by a script. The loop's
/// context must outlive it.
class TlsTestServer {
public:
    using Script = std::function<ScriptedAnswer(const ReceivedRequest&)>;

    TlsTestServer(boost::asio::io_context& context, const TestIdentity& identity, Script script);
    /// Answers everything alike.
    TlsTestServer(boost::asio::io_context& context, const TestIdentity& identity,
                  ScriptedAnswer answer);
    ~TlsTestServer();
    TlsTestServer(const TlsTestServer&) = delete;
    TlsTestServer& operator=(const TlsTestServer&) = delete;

    std::uint16_t port() const;
    /// "https://127.0.0.1:PORT" and the path.
    std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const;

    /// To be changed before a client comes.
    SSL_CTX* tls();
    /// Connections are accepted and then left alone.
    void staySilent();

    int connections() const;
    int openConnections() const;
    int handshakes() const;
    int resumedSessions() const;
    const std::vector<ReceivedRequest>& requests() const;

private:
    struct State;
    std::shared_ptr<State> state;
};

}  // namespace orv::test
