#include <algorithm>
#include <optional>
#include <string>

#include "Fuzz/Target.h"
#include "OrvPlatform/Base64.h"
#include "OrvPlatform/SecureUrl.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/TextLimiter.h"
#include "OrvPlatform/Url.h"
#include "OrvPlatform/UrlError.h"
#include "OrvViewerShared/ControlProtocol.h"

namespace orv::fuzz {

namespace {

std::string encoded(std::string_view bytes) {
    std::string text;
    appendBase64(text, bytes);
    return text;
}

/// What the limiter makes of a stream that comes in pieces of these sizes, over and over.
std::string limited(std::string_view bytes, std::size_t limit, std::string_view sizes,
                    std::string_view marker) {
    TextLimiter limiter(limit);
    for (std::size_t i = 0; !bytes.empty(); ++i) {
        const std::size_t wanted =
            sizes.empty() ? bytes.size() : static_cast<unsigned char>(sizes[i % sizes.size()]) % 67;
        const std::size_t size = std::min(bytes.size(), wanted + 1);
        limiter.feed(bytes.substr(0, size));
        bytes.remove_prefix(size);
    }
    return limiter.finish(marker);
}

void followRedirect(const std::string& from, const std::string& to) {
    try {
        const SecureUrl target = SecureUrl(from).redirectedTo(to);
        demand(!target.host().empty(), "a request goes to a host");
    } catch (const UrlError&) {
        return;
    }
}

}  // namespace

void base64(std::string_view bytes) {
    demand(decodeBase64(encoded(bytes)) == bytes, "what was encoded comes back");
    if (const auto decoded = decodeBase64(bytes)) {
        demand(encoded(*decoded) == bytes, "every content has one spelling");
    }
}

void textLimiter(std::string_view bytes) {
    const std::string whole = limited(bytes, 20, "", "|");
    demand(limited(bytes, 20, bytes, "|") == whole, "pieces make no difference");
    if (!isValidUtf8(bytes)) {
        demand(whole.empty(), "what is no text is shown as empty");
    } else if (characterCount(bytes) <= 20) {
        demand(whole == bytes, "what is within the limit is whole");
    } else {
        demand(whole.ends_with('|'), "what was cut is marked");
        const std::string_view kept(whole.data(), whole.size() - 1);
        demand(bytes.starts_with(kept) && characterCount(kept) == 20, "the first are kept");
    }
}

void url(std::string_view bytes) {
    const std::string text(bytes);
    if (const auto parsed = parseUrl(text)) {
        const auto again = parseUrl(parsed->text());
        demand(again && again->text() == parsed->text(), "a URL stays what it is");
        demand(again->host == parsed->host && again->port == parsed->port, "it names one server");
    }
    demand(parseUrl("https://h/" + percentEncodedPath(text)).has_value(), "a path is encoded");
    demand(parseUrl("https://h/?" + percentEncodedQuery(text)).has_value(), "a query is encoded");
    if (const auto address = controlUrl(text)) {
        demand(parseUrl(*address).has_value(), "the control address is one");
    }
    const std::size_t middle = std::min(text.find('\n'), text.size());
    followRedirect(text.substr(0, middle), text.substr(std::min(middle + 1, text.size())));
    followRedirect("https://desk.example/a/b", text);
}

}  // namespace orv::fuzz
