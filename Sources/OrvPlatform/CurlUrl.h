#pragma once

#include <memory>
#include <optional>
#include <string>

#include <curl/curl.h>

namespace orv {

/// A URL as the HTTP library reads it, so that what is checked here is what is connected to.
class CurlUrl {
public:
    CurlUrl() : handle(curl_url()) {}
    CurlUrl(const CurlUrl& other) : handle(curl_url_dup(other.handle.get())) {}
    CurlUrl(CurlUrl&&) = default;
    CurlUrl& operator=(CurlUrl&&) = default;

    /// False when the text cannot be that part. Setting a whole relative URL resolves it.
    bool set(CURLUPart part, const std::string& text, unsigned flags = 0) {
        return curl_url_set(handle.get(), part, text.c_str(), flags) == CURLUE_OK;
    }

    std::optional<std::string> get(CURLUPart part, unsigned flags = 0) const {
        char* text = nullptr;
        if (curl_url_get(handle.get(), part, &text, flags) != CURLUE_OK) return std::nullopt;
        std::string copy(text);
        curl_free(text);
        return copy;
    }

    CURLU* get() const { return handle.get(); }

private:
    struct Deleter {
        void operator()(CURLU* url) const { curl_url_cleanup(url); }
    };
    std::unique_ptr<CURLU, Deleter> handle;
};

}  // namespace orv
