#include "OrvViewerShared/ViewerError.h"

#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

namespace {

constexpr std::size_t longestShownBody = 600;  // in characters

std::string httpDescription(int status, std::string_view body) {
    const std::string trimmedBody = trimmed(body);
    const bool isPage = lowercased(trimmedBody).find("<html") != std::string::npos;
    if (isPage || characterCount(trimmedBody) > longestShownBody) {
        return fmt::format(
            "Serwer zwrócił błąd HTTP {}. Spróbuj ponownie lub skontaktuj się z administratorem.",
            status);
    }
    if (!trimmedBody.empty()) return fmt::format("HTTP {}: {}", status, trimmedBody);
    return fmt::format("HTTP {}", status);
}

std::string httpReason(int status, std::string_view body) {
    const auto detailOr = [body](const std::string& otherwise) {
        const std::optional<std::string> detail = serverErrorDetail(body);
        return detail ? ": " + *detail : otherwise;
    };
    switch (status) {
        case 401:
            return ", ponieważ dane logowania lub sesja są nieprawidłowe. Zaloguj się ponownie.";
        case 403: return ", ponieważ konto nie ma wymaganych uprawnień.";
        case 404: return ", ponieważ żądany zasób nie istnieje lub został usunięty.";
        case 409:
        case 422:
            return detailOr(
                ", ponieważ serwer odrzucił przesłane dane. Sprawdź formularz i spróbuj ponownie.");
        case 429: return ", ponieważ wykonano zbyt wiele prób. Odczekaj chwilę i spróbuj ponownie.";
        default: break;
    }
    if (status >= 500 && status <= 599) {
        return ", ponieważ serwer ma chwilowy problem. Spróbuj ponownie za kilka minut.";
    }
    return detailOr(fmt::format(". Serwer zwrócił błąd HTTP {}.", status));
}

std::string viewerErrorReason(const ViewerError& error) {
    switch (error.kind()) {
        case ViewerError::Kind::configuration:
            return ", ponieważ konfiguracja aplikacji jest niepełna. Otwórz Ustawienia i sprawdź "
                   "dane połączenia.";
        case ViewerError::Kind::http: return httpReason(error.status(), error.body());
        case ViewerError::Kind::invalidResponse:
            return ", ponieważ serwer zwrócił nieprawidłową odpowiedź. Spróbuj ponownie; jeśli "
                   "problem wraca, skontaktuj się z wsparoą techniczną.";
        case ViewerError::Kind::temporarilyUnavailable:
            return ", ponieważ nie ma połączenia z serwerem. Sprawdź Internet i spróbuj ponownie.";
        case ViewerError::Kind::unsupported: return ": " + error.message();
    }
    return ".";
}

std::string urlErrorReason(UrlErrorCode code) {
    switch (code) {
        case UrlErrorCode::notConnectedToInternet:
        case UrlErrorCode::networkConnectionLost:
            return ", ponieważ komputer nie ma połączenia z Internetem.";
        case UrlErrorCode::timedOut:
            return ", ponieważ serwer nie odpowiedział na czas. Spróbuj ponownie.";
        case UrlErrorCode::cannotFindHost:
        case UrlErrorCode::dnsLookupFailed:
        case UrlErrorCode::cannotConnectToHost:
            return ", ponieważ nie można odnaleźć lub połączyć się z serwerem.";
        case UrlErrorCode::secureConnectionFailed:
        case UrlErrorCode::serverCertificateUntrusted:
            return ", ponieważ nie można bezpiecznie zweryfikować połączenia z serwerem.";
        default: return " z powodu błędu połączenia. Spróbuj ponownie.";
    }
}

}  // namespace

ViewerError::ViewerError(Kind kind, int status, std::string payload, const std::string& description)
    : std::runtime_error(description),
      errorKind(kind),
      httpStatus(status),
      text(std::move(payload)) {
}

ViewerError ViewerError::configuration(const std::string& message) {
    return {Kind::configuration, 0, message, message};
}

ViewerError ViewerError::http(int status, const std::string& body) {
    return {Kind::http, status, body, httpDescription(status, body)};
}

ViewerError ViewerError::invalidResponse(const std::string& message) {
    return {Kind::invalidResponse, 0, message, message};
}

ViewerError ViewerError::temporarilyUnavailable(const std::string& message) {
    return {Kind::temporarilyUnavailable, 0, message, message};
}

ViewerError ViewerError::unsupported(const std::string& message) {
    return {Kind::unsupported, 0, message, message};
}

std::string viewerErrorMessage(const std::exception& error, std::string_view action) {
    const std::string begin = fmt::format("Nie udało się {}", action);
    if (const auto* viewerError = dynamic_cast<const ViewerError*>(&error)) {
        return begin + viewerErrorReason(*viewerError);
    }
    if (const auto* urlError = dynamic_cast<const UrlError*>(&error)) {
        return begin + urlErrorReason(urlError->code());
    }
    return begin + ". " + error.what();
}

std::optional<std::string> serverErrorDetail(std::string_view body) {
    try {
        const std::optional<std::string> detail = textIfPresent(parseJson(body), "detail");
        if (!detail) return std::nullopt;
        std::string text = trimmed(*detail);
        if (text.empty()) return std::nullopt;
        return text;
    } catch (const DecodingError&) {
        return std::nullopt;  // most error bodies are no JSON; that is no failure
    }
}

}  // namespace orv
