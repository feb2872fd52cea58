#include "OrvViewerShared/Audit/ConfigId.h"

#include <vector>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

/// What follows the key on a trimmed line, with its separator; nothing when the line does not
/// begin with the key.
std::optional<std::string_view> afterKey(std::string_view line, std::string_view key) {
    const bool isQuoted = line.starts_with('"');
    if (isQuoted) line.remove_prefix(1);
    if (!line.starts_with(key)) return std::nullopt;
    line.remove_prefix(key.size());
    if (!isQuoted) return line;
    if (!line.starts_with('"')) return std::nullopt;
    return line.substr(1);
}

std::string bareValue(std::string_view text) {
    std::string value = trimmed(text);
    const bool isQuoted = value.starts_with('"') || value.starts_with('\'');
    const std::size_t closingQuote = isQuoted ? value.find(value.front(), 1) : std::string::npos;
    if (closingQuote != std::string::npos) {
        return trimmed(std::string_view(value).substr(1, closingQuote - 1));
    }
    value = value.substr(0, value.find(" #"));
    if (value.ends_with(';')) value.pop_back();
    return trimmed(value);
}

std::optional<std::string> valueIn(std::string_view line, std::string_view key) {
    const std::optional<std::string_view> rest = afterKey(line, key);
    if (!rest) return std::nullopt;
    const std::string separated = trimmed(*rest);
    if (!separated.starts_with('=') && !separated.starts_with(':')) return std::nullopt;
    std::string value = bareValue(std::string_view(separated).substr(1));
    if (value.empty()) return std::nullopt;
    return value;
}

}  // namespace

std::optional<std::string> configId(std::string_view text,
                                    std::initializer_list<std::string_view> keys) {
    const std::vector<std::string_view> lines = linesOf(text);
    for (const std::string_view key : keys) {
        for (const std::string_view line : lines) {
            std::optional<std::string> value = valueIn(trimmed(line), key);
            if (value) return replacingInvalidUtf8(*value);
        }
    }
    return std::nullopt;
}

std::optional<std::string> anyDeskId(std::string_view configuration) {
    return configId(configuration, {"ad.anynet.id", "client_id", "client-id"});
}

std::optional<std::string> teamViewerId(std::string_view preferences) {
    return configId(preferences, {"ClientID", "ClientId", "client_id"});
}

std::optional<std::string> rustDeskIdFromToml(std::string_view toml) {
    return configId(toml, {"id", "rustdesk_id", "rustdesk-id", "client_id", "client-id"});
}

}  // namespace orv
