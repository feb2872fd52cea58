#include "OrvPlatform/CurlFailure.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>
#include <openssl/x509_vfy.h>

#include "OrvPlatform/TlsTrust.h"

namespace orv {

namespace {

using Code = UrlErrorCode;

constexpr const char* cutOff = "The server closed the connection before the end of the answer";

/// A name server says "no such host" at once. Only one that is not heard makes the lookup last,
/// by its own time-outs of some seconds.
constexpr std::chrono::seconds unheardNameServer{2};

bool says(const CurlFailure& failure, const char* words) {
    return failure.text.find(words) != std::string::npos;
}

UrlError lookupFailed(const CurlFailure& failure, const std::string& host) {
    if (failure.isOffline) {
        return {Code::notConnectedToInternet, "There is no network connection"};
    }
    const bool unheard = failure.elapsed >= unheardNameServer;
    return {unheard ? Code::dnsLookupFailed : Code::cannotFindHost,
            fmt::format("Could not resolve host: {}", host)};
}

UrlError connectFailed(const CurlFailure& failure) {
    const int number = failure.systemError;
    const std::string detail =
        number != 0 ? std::strerror(number) : "The server could not be connected to";
    switch (number) {
        case ETIMEDOUT: return {Code::timedOut, detail};
        case ENETUNREACH:
        case ENETDOWN: return {Code::notConnectedToInternet, detail};
        case EHOSTUNREACH:
        case EADDRNOTAVAIL:
            return {failure.isOffline ? Code::notConnectedToInternet : Code::cannotConnectToHost,
                    detail};
        default: return {Code::cannotConnectToHost, detail};
    }
}

/// The other side went away, which libcurl tells in words only.
UrlError connectionLost(const CurlFailure& failure) {
    for (const int number : {ECONNRESET, EPIPE, ETIMEDOUT, ENETDOWN, ENETUNREACH, EHOSTUNREACH}) {
        if (says(failure, std::strerror(number))) {
            return {Code::networkConnectionLost, std::strerror(number)};
        }
    }
    return {Code::networkConnectionLost, cutOff};
}

UrlError handshakeFailed(const CurlFailure& failure) {
    const bool isLost = says(failure, "unexpected eof") || says(failure, "SSL_ERROR_SYSCALL") ||
                        says(failure, std::strerror(ECONNRESET)) ||
                        says(failure, std::strerror(EPIPE));
    if (isLost) return connectionLost(failure);
    return {Code::secureConnectionFailed,
            fmt::format("No secure connection could be made: {}", failure.text)};
}

UrlError certificateRefused(const CurlFailure& failure) {
    // libcurl compares the name itself, after a chain without fault, and before it notes so.
    const bool isForOtherHost =
        failure.verifyResult == X509_V_OK || failure.verifyResult == X509_V_ERR_UNSPECIFIED;
    return {
        Code::serverCertificateUntrusted,
        certificateRejection(isForOtherHost ? X509_V_ERR_HOSTNAME_MISMATCH : failure.verifyResult)};
}

UrlError inItsOwnWords(Code code, const CurlFailure& failure) {
    return {code, failure.text.empty() ? curl_easy_strerror(failure.result) : failure.text};
}

bool hasRoute(int family, const void* address, socklen_t size) {
    const int socket = ::socket(family, SOCK_DGRAM, 0);
    if (socket < 0) return false;
    // Connecting a datagram socket only looks up the route.
    const bool found = ::connect(socket, static_cast<const sockaddr*>(address), size) == 0;
    ::close(socket);
    return found;
}

}  // namespace

UrlError urlErrorOf(const CurlFailure& failure) {
    if (failure.proxyStatus >= 300) {
        return {
            Code::cannotConnectToHost,
            fmt::format("The proxy refused the connection with status {}", failure.proxyStatus)};
    }
    switch (failure.result) {
        case CURLE_COULDNT_RESOLVE_HOST: return lookupFailed(failure, failure.host);
        case CURLE_COULDNT_RESOLVE_PROXY:
            return lookupFailed(failure, failure.proxyHost.value_or("the proxy"));
        case CURLE_COULDNT_CONNECT: return connectFailed(failure);
        case CURLE_OPERATION_TIMEDOUT: return inItsOwnWords(Code::timedOut, failure);
        case CURLE_PEER_FAILED_VERIFICATION: return certificateRefused(failure);
        case CURLE_SSL_CONNECT_ERROR: return handshakeFailed(failure);
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_USE_SSL_FAILED: return inItsOwnWords(Code::secureConnectionFailed, failure);
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE: return connectionLost(failure);
        case CURLE_FILESIZE_EXCEEDED:
            return {Code::dataLengthExceedsMaximum, "The answer is longer than accepted"};
        case CURLE_BAD_CONTENT_ENCODING:
            return inItsOwnWords(Code::cannotDecodeContentData, failure);
        case CURLE_URL_MALFORMAT: return inItsOwnWords(Code::badUrl, failure);
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:  // an answer that is not HTTP; the URL was checked before
            return inItsOwnWords(Code::badServerResponse, failure);
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM: return inItsOwnWords(Code::cannotParseResponse, failure);
        case CURLE_OUT_OF_MEMORY:
        case CURLE_WRITE_ERROR:  // refused by us for want of memory
            return {Code::resourceUnavailable, "There is not enough memory for the transfer"};
        default: return inItsOwnWords(Code::unknown, failure);
    }
}

bool isOffline() {
    // Addresses kept for documentation: nobody's, yet routed like everybody's.
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(443);
    ::inet_pton(AF_INET, "192.0.2.1", &v4.sin_addr);
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(443);
    ::inet_pton(AF_INET6, "2001:db8::1", &v6.sin6_addr);
    return !hasRoute(AF_INET, &v4, sizeof v4) && !hasRoute(AF_INET6, &v6, sizeof v6);
}

}  // namespace orv
