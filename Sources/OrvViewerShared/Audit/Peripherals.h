#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Audit/AuditRun.h"

namespace orv {

/// What the system profiler says of a Mac's equipment. Both may be null.
struct ProfilerAnswers {
    Json main;     // "SPUSBDataType", "SPDisplaysDataType" and "SPPrintersDataType"
    Json usbHost;  // "SPUSBHostDataType", where systems from 26 on list their USB devices
};

/// One flat record for each USB device (a tree, parents before children), display and printer, in
/// this order; at most 500. Takes the answers apart, because every record carries its item.
Json peripheralRecords(ProfilerAnswers answers);

/// For the reading of an answer: the USB devices of as many buses as fill the records.
WantsMoreItems untilRecordsAreFull();

/// Whether the USB devices have to be asked for under the name that newer systems have for them.
bool needsUsbHostAnswer(const Json& mainAnswer, std::string_view systemVersion);

/// By keywords in the item's name, manufacturer and class: "keyboard", "mouse", "camera", "audio",
/// "storage", "controller", else "usb".
std::string usbPeripheralType(const Json& item);

struct PrinterEndpoint {
    std::string connection;  // "usb", "ip" or "unknown"
    std::optional<std::string> host;
    bool operator==(const PrinterEndpoint&) const = default;
};
PrinterEndpoint printerEndpoint(std::string_view uri);

/// By the item's keys, else by the URI's "serial" query value; else the empty text.
std::string printerSerialNumber(const Json& item, std::string_view uri);

/// Runs the profiler and makes the records, the heavy work on a worker. An unreadable answer gives
/// an empty list.
Task<Json> collectPeripherals(AuditRun& run, std::string systemVersion);

}  // namespace orv
