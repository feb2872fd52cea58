#include "OrvPlatform/PropertyList.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

#include <fmt/format.h>
#include <openssl/evp.h>

#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/PropertyListDecoder.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string_view withoutLeadingBlanks(std::string_view text) {
    if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return text;
}

void appendEscaped(std::string& out, std::string_view text) {
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '\r': out += "&#13;"; break;  // would be read back as a line feed
            default: out += c;
        }
    }
}

void requireXmlText(std::string_view text) {
    const bool isXml =
        isValidUtf8(text) && std::all_of(text.begin(), text.end(), [](char c) {
            return static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n' || c == '\r';
        });
    if (!isXml) throw std::invalid_argument("A property list cannot hold this text.");
}

void appendElement(std::string& out, std::string_view name, std::string_view text) {
    requireXmlText(text);
    out += fmt::format("<{}>", name);
    appendEscaped(out, text);
    out += fmt::format("</{}>\n", name);
}

void appendValue(std::string& out, const Json& value, std::size_t depth);

void appendContainer(std::string& out, const Json& value, std::size_t depth,
                     std::string_view name) {
    if (value.empty()) {
        out += fmt::format("<{}/>\n", name);
        return;
    }
    out += fmt::format("<{}>\n", name);
    const std::string indent(depth + 1, '\t');
    for (const auto& [key, item] : value.items()) {
        if (value.is_object()) {
            out += indent;
            appendElement(out, "key", key);
        }
        out += indent;
        appendValue(out, item, depth + 1);
    }
    out += std::string(depth, '\t') + fmt::format("</{}>\n", name);
}

void appendValue(std::string& out, const Json& value, std::size_t depth) {
    switch (value.type()) {
        case Json::value_t::object: return appendContainer(out, value, depth, "dict");
        case Json::value_t::array: return appendContainer(out, value, depth, "array");
        case Json::value_t::string:
            return appendElement(out, "string", value.get_ref<const std::string&>());
        case Json::value_t::boolean: out += value.get<bool>() ? "<true/>\n" : "<false/>\n"; return;
        case Json::value_t::number_float:
            if (!std::isfinite(value.get<double>())) break;
            return appendElement(out, "real", value.dump());
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned: return appendElement(out, "integer", value.dump());
        default: break;
    }
    throw std::invalid_argument("A property list cannot hold this value.");
}

}  // namespace

Json parsePropertyList(std::string_view bytes) {
    if (bytes.starts_with("bplist00")) {
        checkPropertyList(bytes, PropertyListForm::binary);
        return decodePropertyList(bytes, PropertyListForm::binary);
    }
    const std::string_view text = withoutLeadingBlanks(bytes);
    if (!text.starts_with('<')) throw DecodingError("Neither an XML nor a binary property list.");
    checkPropertyList(text, PropertyListForm::xml);
    return decodePropertyList(text, PropertyListForm::xml);
}

std::string xmlPropertyList(const Json& value) {
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    appendValue(out, value, 0);
    return out + "</plist>\n";
}

std::string propertyListData(std::string_view bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     reinterpret_cast<const unsigned char*>(bytes.data()),
                                     static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

std::string propertyListDate(double secondsSince2001) {
    constexpr std::chrono::sys_seconds epoch =
        std::chrono::sys_days{std::chrono::year{2001} / std::chrono::January / 1};
    // Clamped to what a WallTime holds on every system: dates as far off mean "never".
    const double seconds = std::fmax(std::fmin(std::floor(secondsSince2001), 8e9), -9e9);
    return iso8601(WallTime{epoch + std::chrono::seconds(static_cast<std::int64_t>(seconds))});
}

}  // namespace orv
