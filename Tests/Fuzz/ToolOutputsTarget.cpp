#include <string>

#include "Fuzz/Target.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Json.h"
#include "OrvPlatform/MountTable.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/Battery.h"
#include "OrvViewerShared/Audit/CompanyName.h"
#include "OrvViewerShared/Audit/ConfigId.h"
#include "OrvViewerShared/Audit/Peripherals.h"
#include "OrvViewerShared/Audit/RemoteTools.h"
#include "OrvViewerShared/Audit/SystemFacts.h"
#include "OrvViewerShared/HostProbe.h"

namespace orv::fuzz {

namespace {

void names(std::string_view text) {
    (void)normalizedCompanyName(text);
    (void)companyNameFromCopyright(text);
    (void)companyNameFromSigningAuthority(text);
    (void)publisherFromBundleIdentifier(text);
    (void)cleanSpotlightValue(text);
    (void)spotlightValues(text);
    (void)firstSigningAuthority(text);
    (void)companyOfSignature(text, text);
    (void)anyDeskId(text);
    (void)teamViewerId(text);
    (void)rustDeskIdFromToml(text);
    (void)parseHomeDirectory(text);
    (void)isServiceRunning(text);
}

void numbers(std::string_view text) {
    (void)hasBattery(text);
    (void)batteryObject(text);
    (void)sysctlValue(text, "hw.model");
    (void)parseBootTime(text);
    (void)memoryUsage(text);
    (void)macAddresses(text);
    (void)parsePingLatency(text);
    (void)parseHardwareAddress(text);
    (void)parseHostName(text);
    (void)threePartVersion(text);
    if (const auto time = parseIso8601(text)) {
        demand(parseIso8601(iso8601(*time)) == time, "a time is read as it is written");
    }
}

void equipment(std::string_view text) {
    (void)printerEndpoint(text);
    try {
        const Json answer = parseJson(text);
        (void)needsUsbHostAnswer(answer, "26.0");
        const Json records = peripheralRecords({answer, answer});
        demand(records.size() <= 500, "the records have a limit");
        const Json shortened = parseJson(text, untilRecordsAreFull());
        demand(peripheralRecords({shortened, shortened}) == records, "nothing needed is left out");
    } catch (const DecodingError&) {
        return;
    }
}

}  // namespace

void toolOutputs(std::string_view bytes) {
    const std::string text = replacingInvalidUtf8(bytes);
    demand(isValidUtf8(text), "repaired text is valid");
    for (const std::string_view given : {bytes, std::string_view(text)}) {
        names(given);
        numbers(given);
        equipment(given);
        (void)parseMounts(given);
        demand(trimmed(trimmed(given)) == trimmed(given), "trimmed is trimmed");
        demand(compareLocalized(given, given) == 0, "a name is itself");
    }
}

}  // namespace orv::fuzz
