#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace orv {

enum class UrlErrorCode {
    badServerResponse,  ///< what came is not HTTP, or no WebSocket where one was asked for
    badUrl,
    cancelled,
    cannotConnectToHost,
    cannotDecodeContentData,
    cannotFindHost,
    cannotParseResponse,  ///< an HTTP/2 conversation that broke its rules
    dataLengthExceedsMaximum,
    dnsLookupFailed,
    httpTooManyRedirects,
    networkConnectionLost,
    notConnectedToInternet,
    redirectToNonSecureUrl,
    resourceUnavailable,
    secureConnectionFailed,
    serverCertificateUntrusted,
    timedOut,
    unknown,
    unsupportedUrl,
};

/// The code's name as it stands in log lines, for example "cannotConnectToHost".
std::string_view urlErrorCodeName(UrlErrorCode code);

/// A failed exchange over the network: what HTTP and WebSocket throw.
class UrlError : public std::runtime_error {
public:
    /// The detail says what happened as people write it ("Connection refused"); what() then reads
    /// "Connection refused (cannotConnectToHost)".
    UrlError(UrlErrorCode code, const std::string& detail);

    UrlErrorCode code() const { return errorCode; }

private:
    UrlErrorCode errorCode;
};

}  // namespace orv
