#include "WsparoCompanion/DoctorNetwork.h"

#include <chrono>
#include <exception>
#include <utility>
#include <variant>
#include <vector>

#include <fmt/format.h>

#include "OrvPlatform/Cancellation.h"
#include "OrvPlatform/Deadline.h"
#include "OrvPlatform/HostResolver.h"
#include "OrvPlatform/HttpDate.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/Url.h"
#include "OrvViewerShared/ControlProtocol.h"
#include "OrvViewerShared/MacViewerBuildInfo.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/WebSocketJson.h"
#include "WsparoCompanion/DoctorTexts.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/IssueTexts.h"

namespace orv::companion {

namespace {

using namespace std::chrono_literals;

constexpr auto nameLookupLimit = 12s;
constexpr auto greetingLimit = 5s;
// Certificates and sessions forgive this much; more is a clock that nobody sets.
constexpr std::chrono::seconds clockTolerance{60};

/// Asked for by the agent every day, and nothing happens by it.
std::string harmlessPath() {
    return fmt::format(
        "/api/agent/viewer/updates/manifest?platform=macos&architecture=arm64&current_version={}"
        "&channel=stable",
        MacViewerBuildInfo::version);
}

bool isTlsFailure(const UrlError& error) {
    return error.code() == UrlErrorCode::serverCertificateUntrusted ||
           error.code() == UrlErrorCode::secureConnectionFailed;
}

std::optional<std::string> headerOf(const HttpResponse& response, std::string_view name) {
    for (const HttpHeader& header : response.headers) {
        if (equalsIgnoringCase(header.name, name)) return header.value;
    }
    return std::nullopt;
}

}  // namespace

std::string networkReason(const UrlError& error, Language language) {
    const std::string_view text = error.what();
    for (const Bilingual& reason : doctorTexts::certificateReasons) {
        if (text.starts_with(reason.english)) return reason.in(language);
    }
    return std::string(text);
}

std::string DoctorNetwork::Server::shown() const {
    return fmt::format("{}:{}", host, port);
}

DoctorNetwork::Server DoctorNetwork::server() const {
    const std::optional<Url> url = parseUrl(parts.settings.serverBaseUrl);
    if (!url) return {};
    return {url->host, url->port.value_or(443)};
}

Task<int> DoctorNetwork::diagnose() {
    bool goesOn = co_await diagnoseName();
    if (goesOn) {
        goesOn = co_await diagnoseExchange();
    } else {
        skipExchange();
    }
    if (goesOn) {
        co_await diagnoseControl();
    } else {
        parts.report.skip(doctorTexts::control);
    }
    co_return exitCode::success;
}

Task<bool> DoctorNetwork::diagnoseName() {
    const Server server = this->server();
    Server asked = server;
    try {
        if (const auto proxy = parts.proxyFor(server.host, server.port)) {
            asked = {proxy->host, proxy->port};
            parts.report.ok(say(doctorTexts::nameByProxy, server.host, proxy->host, proxy->port));
        }
        using Addresses = std::vector<asio::ip::tcp::endpoint>;
        Task<Addresses> lookup = resolveHost(asked.host, asked.port);
        const std::optional<Addresses> addresses =
            co_await finishedWithin(parts.surroundings.clock, nameLookupLimit, std::move(lookup));
        if (!addresses) throw UrlError(UrlErrorCode::timedOut, "The name service did not answer");
        parts.report.ok(
            say(doctorTexts::nameGood, asked.host, addresses->front().address().to_string()));
        co_return true;
    } catch (const UrlError& error) {
        parts.report.wrong(say(doctorTexts::nameBad, asked.host,
                               networkReason(error, parts.surroundings.language)),
                           say(doctorTexts::nameAdvice));
    }
    co_return false;
}

void DoctorNetwork::skipExchange() {
    for (const Bilingual& what :
         {doctorTexts::tls, doctorTexts::https, doctorTexts::credentials, doctorTexts::clock})
        parts.report.skip(what);
}

/// Whether it makes sense to go on with the control connection.
Task<bool> DoctorNetwork::diagnoseExchange() {
    HttpRequest request;
    request.url = parts.access.api().endpointUrl(harmlessPath());
    request.headers.push_back({"Accept", "application/json"});
    if (const auto header = parts.access.api().authorization()) {
        request.headers.push_back({"Authorization", *header});
    }
    const MonotonicTime begin = parts.surroundings.clock.monotonicNow();
    HttpResponse response;
    try {
        response = co_await parts.access.http().send(request);
    } catch (const UrlError& error) {
        diagnoseFailure(error);
        co_return false;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
        parts.surroundings.clock.monotonicNow() - begin);
    parts.report.ok(say(doctorTexts::tlsGood, server().shown()));
    if (response.status >= 500) {
        parts.report.wrong(say(doctorTexts::httpsServerTrouble, response.status),
                           say(doctorTexts::httpsServerAdvice));
        parts.report.skip(doctorTexts::credentials);
    } else {
        parts.report.ok(say(doctorTexts::httpsGood, response.status, took.count()));
        diagnoseCredentials(response);
    }
    diagnoseClock(response);
    co_return true;
}

void DoctorNetwork::diagnoseFailure(const UrlError& error) {
    const std::string reason = networkReason(error, parts.surroundings.language);
    if (isTlsFailure(error)) {
        parts.report.wrong(say(doctorTexts::tlsBad, server().shown(), reason),
                           say(doctorTexts::tlsAdvice));
        parts.report.skip(doctorTexts::https);
    } else {
        parts.report.skip(doctorTexts::tls);
        parts.report.wrong(say(doctorTexts::httpsBad, reason), say(doctorTexts::httpsAdvice));
    }
    parts.report.skip(doctorTexts::credentials);
    parts.report.skip(doctorTexts::clock);
}

void DoctorNetwork::diagnoseCredentials(const HttpResponse& response) {
    if (response.status == 401 || response.status == 403 || response.status == 410) {
        const auto issue = classify(ViewerError::http(response.status, response.body));
        parts.report.wrong(say(doctorTexts::credentialsBad, response.status),
                           issue ? issueText(*issue, parts.surroundings.language)
                                 : say(doctorTexts::credentialsAdvice));
        return;
    }
    const bool isDevice = parts.state && parts.state->deviceToken;
    parts.report.ok(say(doctorTexts::credentialsGood,
                        say(isDevice ? doctorTexts::deviceToken : doctorTexts::organizationToken)));
}

void DoctorNetwork::diagnoseClock(const HttpResponse& response) {
    const std::optional<WallTime> serverTime =
        parseHttpDate(headerOf(response, "Date").value_or(""));
    if (!serverTime) {
        parts.report.ok(say(doctorTexts::clockUnknown));
        return;
    }
    const auto difference = std::chrono::duration_cast<std::chrono::seconds>(
        parts.surroundings.clock.now() - *serverTime);
    if (std::chrono::abs(difference) > clockTolerance) {
        parts.report.wrong(say(doctorTexts::clockBad, difference.count()),
                           say(doctorTexts::clockAdvice));
    } else {
        parts.report.ok(say(doctorTexts::clockGood, difference.count()));
    }
}

Task<void> DoctorNetwork::diagnoseControl() {
    const std::optional<std::string> url = controlUrl(parts.settings.serverBaseUrl);
    if (!url) co_return;
    std::shared_ptr<WebSocketConnection> connection;
    try {
        WebSocketRequest request = parts.access.api().authenticatedWebSocketRequest(*url);
        connection = co_await parts.webSockets.connect(std::move(request));
        Task<bool> greeting = greet(connection);
        const std::optional<bool> isAnswered =
            co_await finishedWithin(parts.surroundings.clock, greetingLimit, std::move(greeting));
        if (!isAnswered) {
            parts.report.wrong(say(doctorTexts::controlSilent), say(doctorTexts::controlAdvice));
        }
    } catch (const std::exception& error) {
        if (isCancellation(error)) throw;
        const auto* urlError = dynamic_cast<const UrlError*>(&error);
        const std::string reason = urlError == nullptr
                                       ? error.what()
                                       : networkReason(*urlError, parts.surroundings.language);
        parts.report.wrong(say(doctorTexts::controlBad, reason), say(doctorTexts::controlAdvice));
    }
    if (connection) co_await connection->close(webSocketNormalClosure);
}

/// The upgrade alone proves little: servers may tell what is wrong only after the greeting.
Task<bool> DoctorNetwork::greet(std::shared_ptr<WebSocketConnection> connection) {
    if (!parts.state || !parts.state->deviceUid) {
        parts.report.ok(say(doctorTexts::controlOpened));
        co_return true;
    }
    const ViewerState& state = *parts.state;
    Json hello = controlHello({*state.deviceUid, state.supportId, state.hostname, std::nullopt});
    co_await sendJson(*connection, std::move(hello));
    for (;;) {
        const JsonEvent event = co_await receiveJson(*connection);
        if (const auto* close = std::get_if<WebSocketClosed>(&event)) {
            throw closedByServer(*close);
        }
        const control::Message message = control::interpret(std::get<Json>(event));
        if (std::holds_alternative<control::Ready>(message)) {
            parts.report.ok(say(doctorTexts::controlGood));
            co_return true;
        }
        if (const auto* rejected = std::get_if<control::Rejected>(&message)) {
            parts.report.wrong(say(doctorTexts::controlRejected, rejected->status),
                               say(doctorTexts::controlAdvice));
            co_return true;
        }
    }
}

}  // namespace orv::companion
