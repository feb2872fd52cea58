#include "OrvViewerShared/Update/PackageValidation.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/ViewerError.h"

namespace orv {

namespace {

constexpr std::size_t sha256Digits = 64;

std::string validatedSha256(const std::optional<std::string>& given) {
    const std::string hash = trimmed(given.value_or(""));
    const bool isHexadecimal =
        hash.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (hash.size() != sha256Digits || !isHexadecimal) {
        throw ViewerError::unsupported("Update manifest must include a valid SHA-256 hash.");
    }
    return lowercased(hash);
}

std::int64_t validatedSize(std::optional<std::int64_t> size) {
    if (!size || *size < 1 || *size > largestUpdatePackageBytes) {
        throw ViewerError::unsupported("Update manifest has invalid package size.");
    }
    return *size;
}

Url httpsUrl(const std::string& text, const char* refusal) {
    std::optional<Url> url = parseUrl(text);
    if (!url || lowercased(url->scheme) != "https" || url->host.empty()) {
        throw ViewerError::unsupported(refusal);
    }
    return std::move(*url);
}

/// "pkg" for "/a/b.pkg"; a name that only begins with its dot has none.
std::string pathExtension(const std::string& path) {
    const std::string name = lastPathComponent(path);
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? "" : name.substr(dot + 1);
}

}  // namespace

ValidatedUpdatePackage validatedUpdatePackage(const ViewerUpdateManifest& manifest,
                                              const std::string& serverBaseUrl) {
    ValidatedUpdatePackage package;
    package.sha256 = validatedSha256(manifest.sha256);
    package.sizeBytes = validatedSize(manifest.sizeBytes);
    package.url = validatedUpdatePackageUrl(manifest, serverBaseUrl);
    return package;
}

Url validatedUpdatePackageUrl(const ViewerUpdateManifest& manifest,
                              const std::string& serverBaseUrl) {
    Url package = httpsUrl(manifest.url, "Update manifest has invalid package URL.");
    const Url server = httpsUrl(serverBaseUrl, "serverBaseUrl must be a valid HTTPS URL.");
    if (!equalsIgnoringCase(package.host, server.host)) {
        throw ViewerError::unsupported("Update package host is not trusted.");
    }
    if (package.port && package.port != server.port) {
        throw ViewerError::unsupported("Update package port is not trusted.");
    }
    if (!equalsIgnoringCase(pathExtension(package.path), "pkg")) {
        throw ViewerError::unsupported("Update package must be a .pkg file.");
    }
    return package;
}

}  // namespace orv
