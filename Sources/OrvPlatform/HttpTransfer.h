#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <curl/curl.h>

#include "OrvPlatform/HttpClient.h"
#include "OrvPlatform/SecureUrl.h"
#include "OrvPlatform/SystemProxy.h"
#include "OrvPlatform/TlsTrust.h"
#include "OrvPlatform/UrlError.h"

namespace orv {

/// What every transfer of a session has in common.
struct HttpTransferSettings {
    const TlsTrust* trust = nullptr;  // outlives the transfer
    std::shared_ptr<CURLSH> tlsSessions;
    std::size_t maximumBodyBytes = 0;
    std::string userAgent;
};

/// One request to one URL and its answer, whatever its status: no redirects, no time-outs. The
/// caller lets CurlMulti carry it.
class HttpTransfer {
public:
    /// Throws UrlError when the request cannot be sent as it is.
    HttpTransfer(std::shared_ptr<const HttpRequest> request, const SecureUrl& url,
                 const std::optional<ProxyAddress>& proxy, const HttpTransferSettings& settings);
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;

    CURL* handle() const { return easy.get(); }

    /// When the last byte came or went. That something has come is for the carrier to notice.
    std::chrono::steady_clock::time_point lastProgress() const { return progressedAt; }

    void noteProgress() { progressedAt = std::chrono::steady_clock::now(); }

    /// Once it has ended. Throws UrlError when that is not with a whole answer.
    HttpResponse takeResponse(CURLcode result);

private:
    struct Deleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    template <typename Value>
    void set(CURLoption option, Value value);
    void setUrlAndProxy(const SecureUrl& url, const std::optional<ProxyAddress>& proxy);
    void setSecurity(const HttpTransferSettings& settings);
    void setRequest();
    void setHeaders();
    void setReceipt();

    static CURLcode trustPeers(CURL*, void* context, void* trust);
    static std::size_t headerCame(char* line, std::size_t size, std::size_t count, void* self);
    static std::size_t bodyCame(char* data, std::size_t size, std::size_t count, void* self);
    static int bodyWent(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent);
    static int connected(void* self, char*, char*, int, int);
    void reserveBody();
    UrlError failure(CURLcode result) const;

    std::shared_ptr<const HttpRequest> request;
    std::shared_ptr<CURLSH> tlsSessions;
    std::string host;
    std::optional<std::string> proxyHost;
    std::size_t maximumBodyBytes;
    std::size_t headerBytes = 0;
    bool headersAreWhole = false;
    bool isTooLong = false;
    std::string body;
    curl_off_t sentBytes = 0;
    std::chrono::steady_clock::time_point progressedAt = std::chrono::steady_clock::now();
    char errorText[CURL_ERROR_SIZE] = {};
    std::unique_ptr<curl_slist, Deleter> headers;
    std::unique_ptr<CURL, Deleter> easy;  // last: it refers to all of the above
};

}  // namespace orv
