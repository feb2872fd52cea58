#include "OrvPlatform/UrlError.h"

#include <fmt/format.h>

namespace orv {

std::string_view urlErrorCodeName(UrlErrorCode code) {
    switch (code) {
        case UrlErrorCode::badServerResponse: return "badServerResponse";
        case UrlErrorCode::badUrl: return "badURL";
        case UrlErrorCode::cancelled: return "cancelled";
        case UrlErrorCode::cannotConnectToHost: return "cannotConnectToHost";
        case UrlErrorCode::cannotDecodeContentData: return "cannotDecodeContentData";
        case UrlErrorCode::cannotFindHost: return "cannotFindHost";
        case UrlErrorCode::cannotParseResponse: return "cannotParseResponse";
        case UrlErrorCode::dataLengthExceedsMaximum: return "dataLengthExceedsMaximum";
        case UrlErrorCode::dnsLookupFailed: return "dnsLookupFailed";
        case UrlErrorCode::httpTooManyRedirects: return "httpTooManyRedirects";
        case UrlErrorCode::networkConnectionLost: return "networkConnectionLost";
        case UrlErrorCode::notConnectedToInternet: return "notConnectedToInternet";
        case UrlErrorCode::redirectToNonSecureUrl: return "redirectToNonSecureURL";
        case UrlErrorCode::resourceUnavailable: return "resourceUnavailable";
        case UrlErrorCode::secureConnectionFailed: return "secureConnectionFailed";
        case UrlErrorCode::serverCertificateUntrusted: return "serverCertificateUntrusted";
        case UrlErrorCode::timedOut: return "timedOut";
        case UrlErrorCode::unknown: return "unknown";
        case UrlErrorCode::unsupportedUrl: return "unsupportedURL";
    }
    return "unknown";
}

UrlError::UrlError(UrlErrorCode code, const std::string& detail)
    : std::runtime_error(fmt::format("{} ({})", detail, urlErrorCodeName(code))), errorCode(code) {
}

}  // namespace orv
