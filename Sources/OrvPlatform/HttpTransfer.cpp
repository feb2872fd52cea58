#include "OrvPlatform/HttpTransfer.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "OrvPlatform/CurlFailure.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

/// All header lines of one answer together; servers send a few KiB.
constexpr std::size_t maximumHeaderBytes = 256 * 1024;

/// A length that the server claims is believed only so far; a longer body grows as it comes.
constexpr curl_off_t maximumReservedBytes = 32 * 1024 * 1024;

bool isToken(std::string_view text) {
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return isAsciiDigit(c) || isAsciiLetter(c) || marks.find(c) != std::string_view::npos;
    });
}

/// Text from outside (a stored token, say) must not be able to add a header of its own.
void demandSendable(const HttpRequest& request) {
    constexpr std::string_view lineBreaks("\r\n\0", 3);
    if (!isToken(request.method)) {
        throw UrlError(UrlErrorCode::unknown, "The request's method is not valid");
    }
    for (const HttpHeader& header : request.headers) {
        if (!isToken(header.name) || header.value.find_first_of(lineBreaks) != std::string::npos) {
            throw UrlError(UrlErrorCode::unknown,
                           fmt::format("The request's header {} is not valid", header.name));
        }
    }
}

bool isNamed(const HttpRequest& request, const char* name) {
    return std::any_of(request.headers.begin(), request.headers.end(),
                       [name](const HttpHeader& h) { return curl_strequal(h.name.c_str(), name); });
}

}  // namespace

HttpTransfer::HttpTransfer(std::shared_ptr<const HttpRequest> whatToSend, const SecureUrl& url,
                           const std::optional<ProxyAddress>& proxy,
                           const HttpTransferSettings& settings)
    : request(std::move(whatToSend)),
      tlsSessions(settings.tlsSessions),
      host(url.host()),
      maximumBodyBytes(settings.maximumBodyBytes),
      easy(curl_easy_init()) {
    if (!easy) throw std::runtime_error("The HTTP library cannot be set up");
    demandSendable(*request);
    set(CURLOPT_NOSIGNAL, 1L);
    // A host name that is still being looked up must not hold up a cancellation.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    set(CURLOPT_ERRORBUFFER, static_cast<char*>(errorText));
    set(CURLOPT_USERAGENT, settings.userAgent.c_str());
    setUrlAndProxy(url, proxy);
    setSecurity(settings);
    setRequest();
    setHeaders();
    setReceipt();
}

template <typename Value>
void HttpTransfer::set(CURLoption option, Value value) {
    if (curl_easy_setopt(easy.get(), option, value) != CURLE_OK) {
        throw std::runtime_error(
            fmt::format("The HTTP library does not know option {}", static_cast<int>(option)));
    }
}

void HttpTransfer::setUrlAndProxy(const SecureUrl& url, const std::optional<ProxyAddress>& proxy) {
    set(CURLOPT_CURLU, url.parts().get());
    set(CURLOPT_PROTOCOLS_STR, "https");
    // Empty texts keep the library from asking the environment, which has been asked already.
    set(CURLOPT_NOPROXY, "");
    set(CURLOPT_PROXY, "");
    if (!proxy) return;
    proxyHost = proxy->host;
    const bool isIpv6 = proxy->host.find(':') != std::string::npos;
    const std::string address = fmt::format("http://{}{}{}:{}", isIpv6 ? "[" : "", proxy->host,
                                            isIpv6 ? "]" : "", proxy->port);
    set(CURLOPT_PROXY, address.c_str());
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (proxy->user.empty()) return;
    set(CURLOPT_PROXYUSERNAME, proxy->user.c_str());
    set(CURLOPT_PROXYPASSWORD, proxy->password.c_str());
}

void HttpTransfer::setSecurity(const HttpTransferSettings& settings) {
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    // The library's own bundle would be read for every connection, and trusted besides ours.
    set(CURLOPT_CAINFO, static_cast<char*>(nullptr));
    set(CURLOPT_CAPATH, static_cast<char*>(nullptr));
    set(CURLOPT_SSL_CTX_FUNCTION, &HttpTransfer::trustPeers);
    set(CURLOPT_SSL_CTX_DATA, settings.trust);
    set(CURLOPT_SHARE, tlsSessions.get());
}

void HttpTransfer::setRequest() {
    const std::string& method = request->method;
    if (method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
        return;
    }
    const bool expectsBody = method == "POST" || method == "PUT" || method == "PATCH";
    if (request->body || expectsBody) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDS, request->body ? request->body->data() : "");
        set(CURLOPT_POSTFIELDSIZE_LARGE,
            static_cast<curl_off_t>(request->body ? request->body->size() : 0));
    }
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
}

void HttpTransfer::setHeaders() {
    const auto append = [this](const std::string& line) {
        curl_slist* longer = curl_slist_append(headers.get(), line.c_str());
        if (longer == nullptr) throw std::bad_alloc();
        (void)headers.release();
        headers.reset(longer);
    };
    for (const HttpHeader& header : request->headers) {
        // The library's way of writing a header without a value.
        append(header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
    }
    // Would make the server's consent a round trip of its own; and a form it is not.
    append("Expect:");
    if (!isNamed(*request, "Content-Type")) append("Content-Type:");
    set(CURLOPT_HTTPHEADER, headers.get());
}

void HttpTransfer::setReceipt() {
    set(CURLOPT_ACCEPT_ENCODING, "");  // all that the library can decode
    if (request->method != "HEAD") {
        set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(maximumBodyBytes));
    }
    set(CURLOPT_HEADERFUNCTION, &HttpTransfer::headerCame);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &HttpTransfer::bodyCame);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_XFERINFOFUNCTION, &HttpTransfer::bodyWent);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_PREREQFUNCTION, &HttpTransfer::connected);
    set(CURLOPT_PREREQDATA, this);
}

CURLcode HttpTransfer::trustPeers(CURL*, void* context, void* trust) {
    try {
        static_cast<const TlsTrust*>(trust)->applyTo(static_cast<SSL_CTX*>(context));
    } catch (const std::exception&) {
        return CURLE_SSL_ENGINE_INITFAILED;
    }
    return CURLE_OK;
}

std::size_t HttpTransfer::headerCame(char* line, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<HttpTransfer*>(self);
    // An empty line ends the headers, unless those of the final answer are still to come.
    const std::string_view text(line, size * count);
    if (text.starts_with("HTTP/")) transfer.headersAreWhole = false;
    if (text == "\r\n" || text == "\n") transfer.headersAreWhole = true;
    transfer.headerBytes += text.size();
    transfer.isTooLong = transfer.headerBytes > maximumHeaderBytes;
    return transfer.isTooLong ? 0 : text.size();
}

std::size_t HttpTransfer::bodyCame(char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<HttpTransfer*>(self);
    const std::size_t bytes = size * count;
    if (bytes > transfer.maximumBodyBytes - transfer.body.size()) {
        transfer.isTooLong = true;
        return CURL_WRITEFUNC_ERROR;
    }
    try {
        if (transfer.body.empty()) transfer.reserveBody();
        transfer.body.append(data, bytes);
    } catch (const std::bad_alloc&) {
        return CURL_WRITEFUNC_ERROR;
    }
    return bytes;
}

void HttpTransfer::reserveBody() {
    curl_off_t announced = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    if (announced > 0)
        body.reserve(static_cast<std::size_t>(std::min(announced, maximumReservedBytes)));
}

int HttpTransfer::bodyWent(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
    auto& transfer = *static_cast<HttpTransfer*>(self);
    if (std::exchange(transfer.sentBytes, sent) != sent) transfer.noteProgress();
    return 0;
}

int HttpTransfer::connected(void* self, char*, char*, int, int) {
    static_cast<HttpTransfer*>(self)->noteProgress();
    return CURL_PREREQFUNC_OK;
}

HttpResponse HttpTransfer::takeResponse(CURLcode result) {
    if (result != CURLE_OK) throw failure(result);
    HttpResponse response;
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    // To the library, headers that break off are an answer without a body.
    if (!headersAreWhole || status < 200) throw failure(CURLE_PARTIAL_FILE);
    response.status = static_cast<int>(status);
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(easy.get(), CURLH_HEADER, -1, header)) != nullptr) {
        response.headers.push_back({header->name, header->value});
    }
    response.body = std::move(body);
    return response;
}

UrlError HttpTransfer::failure(CURLcode result) const {
    CurlFailure what;
    what.result = isTooLong ? CURLE_FILESIZE_EXCEEDED : result;
    what.host = host;
    what.proxyHost = proxyHost;
    what.text = errorText;
    long number = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &number);
    what.systemError = static_cast<int>(number);
    curl_easy_getinfo(easy.get(), CURLINFO_SSL_VERIFYRESULT, &what.verifyResult);
    curl_easy_getinfo(easy.get(), CURLINFO_HTTP_CONNECTCODE, &what.proxyStatus);
    curl_off_t microseconds = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_TOTAL_TIME_T, &microseconds);
    what.elapsed = std::chrono::microseconds(microseconds);
    what.isOffline = isOffline();
    return urlErrorOf(what);
}

}  // namespace orv
