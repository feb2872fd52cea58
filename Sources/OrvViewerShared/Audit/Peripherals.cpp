#include "OrvViewerShared/Audit/Peripherals.h"

#include <array>
#include <charconv>
#include <initializer_list>
#include <utility>

#include "OrvPlatform/Text.h"
#include "OrvPlatform/Url.h"
#include "OrvViewerShared/Audit/SystemProfiler.h"
#include "OrvViewerShared/SanitizeJson.h"

namespace orv {

namespace {

constexpr std::size_t maximumCount = 500;

constexpr const char* usbType = "SPUSBDataType";
constexpr const char* usbHostType = "SPUSBHostDataType";  // of systems from 26 on

using Keys = std::initializer_list<const char*>;

constexpr Keys serialKeys = {
    "serial_num",     "serial_number",     "serial",
    "device_serial",  "USB Serial Number", "Serial Number",
    "_serial_number", "spusb_serial_num",  "spdisplays_display-serial-number"};
constexpr Keys printerUriKeys = {"spp_printer_uri", "printer_uri", "device_uri", "uri"};

std::string renderedAsText(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    return value.is_null() ? std::string() : compactJson(value);
}

/// The first value that is present, not empty and not "<null>", as text; else the empty text.
std::string firstUsable(const Json& item, Keys keys) {
    for (const char* key : keys) {
        const auto found = item.find(key);
        if (found == item.end()) continue;
        std::string text = renderedAsText(*found);
        if (!text.empty() && text != "<null>") return text;
    }
    return {};
}

std::string orElse(std::string text, std::string_view fallback) {
    return text.empty() ? std::string(fallback) : text;
}

/// The array under the key, to be taken apart; an empty one when there is none.
Json takeArray(Json& object, const char* key) {
    if (!object.is_object()) return Json::array();
    const auto found = object.find(key);
    return found != object.end() && found->is_array() ? std::move(*found) : Json::array();
}

bool isFull(const Json& records) {
    return records.size() >= maximumCount;
}

/// "Not Provided" is how newer systems write that a device has no serial number.
std::string usbSerialNumber(const Json& item) {
    std::string serial = firstUsable(item, serialKeys);
    if (!serial.empty()) return serial;
    serial = firstUsable(item, {"USBDeviceKeySerialNumber"});
    return serial == "Not Provided" ? std::string() : serial;
}

std::string usbName(const Json& item) {
    return trimmed(firstUsable(item, {"_name", "name"}));
}

std::string usbManufacturer(const Json& item) {
    return trimmed(firstUsable(item, {"manufacturer", "USBDeviceKeyVendorName"}));
}

/// Without its details. The model is the product's number by design.
Json usbRecord(const Json& item, const std::string& path) {
    return {
        {"category", "usb"},
        {"type", usbPeripheralType(item)},
        {"name", usbName(item)},
        {"model", firstUsable(item, {"product_id", "device_speed", "USBDeviceKeyProductID",
                                     "USBDeviceKeyLinkSpeed"})},
        {"manufacturer", usbManufacturer(item)},
        {"serial_number", usbSerialNumber(item)},
        {"vendor_id", firstUsable(item, {"vendor_id", "USBDeviceKeyVendorID"})},
        {"product_id", firstUsable(item, {"product_id", "USBDeviceKeyProductID"})},
        {"connection", "usb"},
        {"path", path},
    };
}

/// Whether the items are part of another item, whose record will carry them too.
enum class Items { ownedByParent, outermost };

/// Depth first; the parser's depth limit bounds the recursion.
void collectUsbItems(const std::string& path, Json& items, Items place, Json& into) {
    for (Json& item : items) {
        if (isFull(into)) return;
        if (!item.is_object()) continue;
        const std::string itemPath = path + " / " + usbName(item);
        const std::size_t index = into.size();
        into.push_back(usbRecord(item, itemPath));
        const auto children = item.find("_items");
        if (children != item.end() && children->is_array()) {
            collectUsbItems(itemPath, *children, Items::ownedByParent, into);
        }
        // A bus may hold megabytes: only what is still needed is copied.
        into[index]["details"] = place == Items::outermost ? std::move(item) : Json(item);
    }
}

/// As many as collectUsbItems makes of the item when there is room for them.
std::size_t usbRecordCount(const Json& item) {
    if (!item.is_object()) return 0;
    std::size_t count = 1;
    const auto children = item.find("_items");
    if (children == item.end() || !children->is_array()) return count;
    for (const Json& child : *children)
        count += usbRecordCount(child);
    return count;
}

Json displayRecord(Json item) {
    Json record = {
        {"category", "monitor"},
        {"type", "display"},
        {"name",
         orElse(firstUsable(item, {"_name", "spdisplays_display_type", "sppci_model"}), "Monitor")},
        {"model", firstUsable(item, {"spdisplays_display_type"})},
        {"manufacturer", firstUsable(item, {"spdisplays_vendor", "_spdisplays_display-vendor-id"})},
        {"serial_number", firstUsable(item, {"spdisplays_display-serial-number",
                                             "_spdisplays_display-serial-number"})},
        {"connection", orElse(firstUsable(item, {"spdisplays_connection_type"}), "display")},
        // The built-in display has only the key with the underscore.
        {"resolution", firstUsable(item, {"spdisplays_resolution", "_spdisplays_resolution"})},
    };
    record["details"] = std::move(item);
    return record;
}

/// Graphics devices hold their displays: in "_items", on today's systems in "spdisplays_ndrvs".
void collectDisplays(Json graphicsDevices, Json& into) {
    for (Json& device : graphicsDevices) {
        for (const char* key : {"_items", "spdisplays_ndrvs"}) {
            for (Json& item : takeArray(device, key)) {
                if (isFull(into)) return;
                if (item.is_object()) into.push_back(displayRecord(std::move(item)));
            }
        }
    }
}

/// A Mac without printers answers with one entry that tells only its printing system's version.
bool isAnswerWithoutPrinters(const Json& item) {
    return item.contains("cupsversion") &&
           firstUsable(item, {"_name", "spp_printer_name"}).empty() &&
           firstUsable(item, printerUriKeys).empty();
}

Json printerRecord(Json item) {
    const std::string uri = firstUsable(item, printerUriKeys);
    const PrinterEndpoint endpoint = printerEndpoint(uri);
    Json record = {
        {"category", "printer"},
        {"type", "printer"},
        {"name", orElse(firstUsable(item, {"_name", "spp_printer_name"}), "Drukarka")},
        {"model",
         firstUsable(item, {"spp_printer_make_and_model", "printer_make_and_model", "ppd"})},
        {"serial_number", printerSerialNumber(item, uri)},
        {"connection", endpoint.connection},
        {"ip_address", sanitizeJson(endpoint.host)},
        {"port_name", uri},
        {"status", firstUsable(item, {"spp_printer_status", "status"})},
    };
    record["details"] = std::move(item);
    return record;
}

void collectPrinters(Json printers, Json& into) {
    for (Json& item : printers) {
        if (isFull(into)) return;
        if (item.is_object() && !isAnswerWithoutPrinters(item)) {
            into.push_back(printerRecord(std::move(item)));
        }
    }
}

/// The name, the manufacturer and every value whose key speaks of a class, in lower case.
std::string descriptiveTexts(const Json& item) {
    std::string texts = usbName(item) + " " + usbManufacturer(item);
    for (const auto& [key, value] : item.items()) {
        const bool isClassLike = lowercased(key).find("class") != std::string::npos;
        if (isClassLike && value.is_primitive()) texts += " " + renderedAsText(value);
    }
    return lowercased(texts);
}

}  // namespace

std::string usbPeripheralType(const Json& item) {
    using Keyword = std::pair<std::string_view, const char*>;
    constexpr std::array<Keyword, 12> typesByKeyword = {{
        {"keyboard", "keyboard"},
        {"mouse", "mouse"},
        {"trackpad", "mouse"},
        {"camera", "camera"},
        {"audio", "audio"},
        {"speaker", "audio"},
        {"microphone", "audio"},
        {"storage", "storage"},
        {"disk", "storage"},
        {"flash", "storage"},
        {"controller", "controller"},
        {"gamepad", "controller"},
    }};
    const std::string texts = descriptiveTexts(item);
    for (const auto& [keyword, type] : typesByKeyword) {
        if (texts.find(keyword) != std::string::npos) return type;
    }
    return "usb";
}

PrinterEndpoint printerEndpoint(std::string_view uri) {
    const std::string text = lowercased(uri);
    if (text.empty()) return {"unknown", std::nullopt};
    if (text.find("usb") != std::string::npos) return {"usb", std::nullopt};
    const std::optional<Url> url = parseUrl(text);
    if (url && !url->host.empty()) return {"ip", url->host};
    for (const char* protocol : {"ipp", "socket", "lpd"}) {
        if (text.find(protocol) != std::string::npos) return {"ip", std::nullopt};
    }
    return {"unknown", std::nullopt};
}

std::string printerSerialNumber(const Json& item, std::string_view uri) {
    constexpr std::string_view name = "serial=";
    std::string serial = firstUsable(item, serialKeys);
    if (!serial.empty()) return serial;
    const std::size_t query = uri.find('?');
    if (query == std::string_view::npos) return {};
    std::string_view rest = uri.substr(query + 1);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('&'), rest.size());
        const std::string_view parameter = rest.substr(0, end);
        if (parameter.starts_with(name)) return std::string(parameter.substr(name.size()));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return {};
}

WantsMoreItems untilRecordsAreFull() {
    return [count = std::size_t{0}](const std::string& dataType, const Json& itemsSoFar) mutable {
        // Displays and printers are few, and not every item makes a record.
        if (dataType != usbType && dataType != usbHostType) return true;
        if (itemsSoFar.size() == 1) count = 0;
        count += usbRecordCount(itemsSoFar.back());
        return count < maximumCount;
    };
}

bool needsUsbHostAnswer(const Json& mainAnswer, std::string_view systemVersion) {
    constexpr int firstWithHostType = 26;
    int major = 0;
    std::from_chars(systemVersion.data(), systemVersion.data() + systemVersion.size(), major);
    if (major < firstWithHostType) return false;
    const auto found = mainAnswer.find(usbType);
    return found == mainAnswer.end() || found->empty();
}

Json peripheralRecords(ProfilerAnswers answers) {
    Json records = Json::array();
    Json usbItems = takeArray(answers.main, usbType);
    Json usbHostItems = takeArray(answers.usbHost, usbHostType);
    collectUsbItems("USB", usbItems, Items::outermost, records);
    collectUsbItems("USB", usbHostItems, Items::outermost, records);
    collectDisplays(takeArray(answers.main, "SPDisplaysDataType"), records);
    collectPrinters(takeArray(answers.main, "SPPrintersDataType"), records);
    return records;
}

Task<Json> collectPeripherals(AuditRun& run, std::string systemVersion) {
    std::vector<std::string> types = {usbType, "SPDisplaysDataType", "SPPrintersDataType"};
    ProfilerAnswers answers;
    answers.main = co_await systemProfilerJson(run, std::move(types), untilRecordsAreFull());
    if (answers.main.is_null()) co_return Json::array();
    if (needsUsbHostAnswer(answers.main, systemVersion)) {
        std::vector<std::string> hostType = {usbHostType};
        answers.usbHost =
            co_await systemProfilerJson(run, std::move(hostType), untilRecordsAreFull());
    }
    auto makeRecords = [owned = std::move(answers)]() mutable {
        return peripheralRecords(std::move(owned));
    };
    Json records = co_await run.workers.run(std::move(makeRecords));
    co_return records;
}

}  // namespace orv
