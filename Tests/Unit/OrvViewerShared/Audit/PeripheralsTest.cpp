#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/Peripherals.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

using testing::ElementsAre;

std::vector<std::string> valuesOf(const Json& records, const char* key) {
    std::vector<std::string> values;
    for (const Json& record : records)
        values.push_back(record.value(key, "-"));
    return values;
}

Json recordsOf(const std::string& mainAnswer, const std::string& usbHostAnswer = "null") {
    return peripheralRecords({parseJson(mainAnswer), parseJson(usbHostAnswer)});
}

class PeripheralsTest : public AuditFixture {
protected:
    Json collected(const std::string& systemVersion) {
        AuditRun run = newRun();
        return loop.run(collectPeripherals(run, systemVersion));
    }

    static constexpr const char* profiler = "/usr/sbin/system_profiler";
    const Arguments mainTypes = {"SPUSBDataType", "SPDisplaysDataType", "SPPrintersDataType",
                                 "-json"};
    const Arguments usbHostType = {"SPUSBHostDataType", "-json"};
};

TEST_F(PeripheralsTest, listsUsbDevicesThenDisplaysThenPrintersFromOneRun) {
    tool(profiler, mainTypes, fixture("SystemProfiler/laptop.json"));

    const Json records = collected("15.5.0");

    EXPECT_THAT(valuesOf(records, "category"), ElementsAre("usb", "usb", "usb", "usb", "monitor",
                                                           "monitor", "printer", "printer"));
    EXPECT_EQ(processes.calls.size(), 1U);
}

TEST_F(PeripheralsTest, writesAUsbDeviceWithAllItsKeys) {
    tool(profiler, mainTypes, fixture("SystemProfiler/laptop.json"));

    const Json keyboard = collected("15.5.0")[2];

    EXPECT_EQ(keyboard, parseJson(R"({
        "category": "usb", "type": "keyboard", "name": "Ergo Keyboard K2", "model": "0x1201",
        "manufacturer": "Northkey", "serial_number": "NK-00017",
        "vendor_id": "0x1f0a", "product_id": "0x1201", "connection": "usb",
        "path": "USB / USB31Bus / Desk Hub / Ergo Keyboard K2",
        "details": {"_name": "Ergo Keyboard K2", "device_speed": "full_speed",
                    "manufacturer": "Northkey", "product_id": "0x1201",
                    "serial_num": "NK-00017", "vendor_id": "0x1f0a"}})"));
}

TEST_F(PeripheralsTest, rendersNumbersAsTextAndSkipsNullTexts) {
    tool(profiler, mainTypes, fixture("SystemProfiler/laptop.json"));

    const Json mouse = collected("15.5.0")[3];

    EXPECT_EQ(mouse["name"], "Wired Optical");
    EXPECT_EQ(mouse["manufacturer"], "");
    EXPECT_EQ(mouse["vendor_id"], "8721");
    EXPECT_EQ(mouse["model"], "low_speed");
    EXPECT_EQ(mouse["product_id"], "");
    EXPECT_EQ(mouse["type"], "mouse");
}

TEST_F(PeripheralsTest, writesADisplayWithAllItsKeys) {
    tool(profiler, mainTypes, fixture("SystemProfiler/laptop.json"));

    const Json records = collected("15.5.0");

    Json external = records[5];
    EXPECT_EQ(external["details"]["_spdisplays_display-vendor-id"], "2a11");
    external.erase("details");
    EXPECT_EQ(external, parseJson(R"({
        "category": "monitor", "type": "display", "name": "VIEW 27Q", "model": "",
        "manufacturer": "2a11", "serial_number": "4c4f4e47", "connection": "display",
        "resolution": "2560 x 1440 @ 75.00Hz"})"));
    EXPECT_EQ(records[4]["connection"], "spdisplays_internal");
    EXPECT_EQ(records[4]["model"], "spdisplays_built-in-liquid-retina-xdr");
    EXPECT_EQ(records[4]["resolution"], "1512 x 982 @ 120.00Hz");
}

TEST_F(PeripheralsTest, writesAPrinterWithAllItsKeys) {
    tool(profiler, mainTypes, fixture("SystemProfiler/laptop.json"));

    const Json records = collected("15.5.0");

    Json printer = records[6];
    printer.erase("details");
    EXPECT_EQ(printer, parseJson(R"({
        "category": "printer", "type": "printer", "name": "Laser w holu",
        "model": "Northprint L400", "serial_number": "", "connection": "ip",
        "ip_address": "drukarka.biuro.example",
        "port_name": "ipp://drukarka.biuro.example:631/ipp/print", "status": "idle"})"));
    EXPECT_EQ(records[7]["connection"], "usb");
    EXPECT_EQ(records[7]["ip_address"], nullptr);
    EXPECT_EQ(records[7]["serial_number"], "LB-77120");
}

TEST_F(PeripheralsTest, asksNewerSystemsOnceMoreForUsbDevices) {
    tool(profiler, mainTypes, fixture("SystemProfiler/desktop-main.json"));
    tool(profiler, usbHostType, fixture("SystemProfiler/desktop-usb-host.json"));

    const Json records = collected("26.1.0");

    EXPECT_THAT(valuesOf(records, "name"), ElementsAre("USB 3.1 Bus", "USB 3.1 Bus",
                                                       "Pocket Flash 64", "Door Token", "Monitor"));
    Json stick = records[2];
    stick.erase("details");
    EXPECT_EQ(stick, parseJson(R"({
        "category": "usb", "type": "storage", "name": "Pocket Flash 64", "model": "0x5a01",
        "manufacturer": "Pocketware", "serial_number": "", "vendor_id": "0x0c11",
        "product_id": "0x5a01", "connection": "usb",
        "path": "USB / USB 3.1 Bus / Pocket Flash 64"})"));
    EXPECT_EQ(records[3]["serial_number"], "DT-9");
    EXPECT_EQ(records[3]["model"], "12 Mb/s");
}

TEST_F(PeripheralsTest, asksOlderSystemsOnlyOnce) {
    tool(profiler, mainTypes, fixture("SystemProfiler/desktop-main.json"));

    EXPECT_THAT(valuesOf(collected("15.5.0"), "category"), ElementsAre("monitor"));
    EXPECT_EQ(processes.calls.size(), 1U);
}

TEST_F(PeripheralsTest, isEmptyWithoutAReadableAnswer) {
    EXPECT_EQ(collected("26.0.0"), Json::array());
    for (const char* answer : {"", "Es ist ein Fehler aufgetreten", "[1]", "{\"SPUSBDataType\":",
                               "\xff\xfe\x01", "{\"SPUSBDataType\":7,\"SPDisplaysDataType\":{}}"}) {
        tool(profiler, mainTypes, answer);
        EXPECT_EQ(collected("15.0.0"), Json::array()) << answer;
    }
    EXPECT_TRUE(failures.empty());
}

TEST(PeripheralRecordsTest, skipWhatIsNoItem) {
    const Json records = recordsOf(R"({
        "SPUSBDataType": [1, null, "x", {"_name": "A", "_items": "none"}],
        "SPDisplaysDataType": [3, {"_items": [null, {"_name": "D1"}],
                                   "spdisplays_ndrvs": [{"_name": "D2"}]}],
        "SPPrintersDataType": [[], {}]})");
    EXPECT_THAT(valuesOf(records, "name"), ElementsAre("A", "D1", "D2", "Drukarka"));
}

TEST(PeripheralRecordsTest, walkTheUsbTreeParentsFirst) {
    const Json records = recordsOf(R"({"SPUSBDataType": [
        {"_name": "Hub", "_items": [{"_name": "A"}, {"_name": "B"}]}]})");
    EXPECT_THAT(valuesOf(records, "path"),
                ElementsAre("USB / Hub", "USB / Hub / A", "USB / Hub / B"));
    EXPECT_EQ(records[0]["details"]["_items"][1]["_name"], "B");
    EXPECT_EQ(records[2]["details"], parseJson(R"({"_name": "B"})"));
}

TEST(PeripheralRecordsTest, areAtMostFiveHundred) {
    Json items = Json::array();
    for (int i = 0; i < 600; ++i)
        items.push_back({{"_name", "device " + std::to_string(i)}});
    const Json records =
        peripheralRecords({{{"SPUSBDataType", items},
                            {"SPDisplaysDataType", {{{"_items", {{{"_name", "D"}}}}}}},
                            {"SPPrintersDataType", {{{"_name", "P"}}}}},
                           nullptr});
    ASSERT_EQ(records.size(), 500U);
    EXPECT_EQ(records.back()["name"], "device 499");
}

TEST(PeripheralRecordsTest, areTheSameWithoutWhatNoneIsMadeOf) {
    // 62 of these make 496 records.
    std::string buses = R"(null, {"_name": "bus", "_items": [{"_name": "hub", "_items": [1,
        {"_name": "a"}, {"_name": "b"}, {"_name": "c"}, {"_name": "d"}, {"_items": [{}]}]}]})";
    for (int i = 0; i < 7; ++i)
        buses += "," + buses;
    const std::string answer = R"({"SPPrintersDataType": [{"_name": "P"}],
        "SPUSBDataType": [)" + buses +
                               R"(], "SPDisplaysDataType": [)" + buses + "]}";
    const Json shortened = parseJson(answer, untilRecordsAreFull());

    EXPECT_EQ(shortened["SPUSBDataType"].size(), 2 * 63U);
    EXPECT_EQ(shortened["SPDisplaysDataType"].size(), 2 * 128U);
    EXPECT_EQ(peripheralRecords({shortened, nullptr}), recordsOf(answer));
    EXPECT_EQ(recordsOf(answer).size(), 500U);
}

TEST_F(PeripheralsTest, keepsNoMoreOfAnAnswerThanFillsTheRecords) {
    std::string devices = R"({"_name": "device"})";
    for (int i = 0; i < 10; ++i)
        devices += "," + devices;
    // Repeated sections are rare; the last one counts, and it is counted anew.
    tool(profiler, mainTypes, R"({"SPUSBDataType": [{}, {}], "SPUSBDataType": [)" + devices + "]}");
    EXPECT_THAT(valuesOf(collected("15.0.0"), "name"),
                testing::AllOf(testing::SizeIs(500), testing::Each("device")));
}

TEST(PeripheralRecordsTest, surviveDeepTrees) {
    std::string tree;
    for (int depth = 0; depth < 200; ++depth) {
        tree += R"({"_name": "hub", "_items": [{"_name": "a"}, {"_name": "b"}, )";
    }
    tree += R"({"_name": "last"})";
    for (int depth = 0; depth < 200; ++depth)
        tree += "]}";
    const Json records = recordsOf(R"({"SPUSBDataType": [)" + tree + "]}");
    ASSERT_EQ(records.size(), 500U);
    EXPECT_EQ(records[0]["details"]["_items"].size(), 3U);
}

TEST(PeripheralRecordsTest, preferTheFirstKeysOfEachList) {
    const Json records = recordsOf(R"({
        "SPUSBDataType": [{"_name": "x", "product_id": "p", "device_speed": "s",
            "serial_num": "", "serial_number": "<null>", "serial": 42, "device_serial": "no"}],
        "SPDisplaysDataType": [{"_items": [
            {"spdisplays_display_type": "lcd", "sppci_model": "no", "spdisplays_vendor": "V",
             "_spdisplays_display-vendor-id": "no", "spdisplays_display-serial-number": "S",
             "_spdisplays_display-serial-number": "no"},
            {"sppci_model": "GPU"}]}],
        "SPPrintersDataType": [{"spp_printer_name": "P", "spp_printer_make_and_model": "M",
            "printer_make_and_model": "no", "spp_printer_uri": "lpd://a", "uri": "no",
            "spp_printer_status": "busy", "status": "no", "Serial Number": "PS"}]})");
    EXPECT_EQ(records[0]["serial_number"], "42");
    EXPECT_EQ(records[0]["model"], "p");
    EXPECT_EQ(records[1]["name"], "lcd");
    EXPECT_EQ(records[1]["manufacturer"], "V");
    EXPECT_EQ(records[1]["serial_number"], "S");
    EXPECT_EQ(records[2]["name"], "GPU");
    EXPECT_EQ(records[3]["name"], "P");
    EXPECT_EQ(records[3]["model"], "M");
    EXPECT_EQ(records[3]["port_name"], "lpd://a");
    EXPECT_EQ(records[3]["status"], "busy");
    EXPECT_EQ(records[3]["serial_number"], "PS");
}

TEST(PeripheralRecordsTest, knowAMacWithoutPrinters) {
    EXPECT_EQ(recordsOf(R"({"SPPrintersDataType": [{"cupsversion": "2"}]})"), Json::array());
    EXPECT_EQ(recordsOf(R"({"SPPrintersDataType": [{"cupsversion": "2", "_name": "P"}]})").size(),
              1U);
    EXPECT_EQ(recordsOf(R"({"SPPrintersDataType": [{"cupsversion": "2", "uri": "u"}]})").size(),
              1U);
}

TEST(UsbPeripheralTypeTest, isDecidedByTheFirstFamilyThatMatches) {
    const auto typeOf = [](const char* item) { return usbPeripheralType(parseJson(item)); };
    EXPECT_EQ(typeOf(R"({"_name": "Gaming KEYBOARD with Mouse"})"), "keyboard");
    EXPECT_EQ(typeOf(R"({"_name": "Magic Trackpad"})"), "mouse");
    EXPECT_EQ(typeOf(R"({"_name": "FaceTime HD Camera", "manufacturer": "Audio Co"})"), "camera");
    EXPECT_EQ(typeOf(R"({"_name": "Desk Speaker"})"), "audio");
    EXPECT_EQ(typeOf(R"({"_name": "Studio Microphone"})"), "audio");
    EXPECT_EQ(typeOf(R"({"_name": "x", "manufacturer": "NorthDisk"})"), "storage");
    EXPECT_EQ(typeOf(R"({"_name": "x", "device_class": "Mass Storage"})"), "storage");
    EXPECT_EQ(typeOf(R"({"_name": "Gamepad 3"})"), "controller");
    EXPECT_EQ(typeOf(R"({"_name": "Bus", "host_controller": "XHCI"})"), "usb");
    EXPECT_EQ(typeOf("{}"), "usb");
}

TEST(PrinterEndpointTest, tellsConnectionAndHost) {
    using Endpoint = PrinterEndpoint;
    EXPECT_EQ(printerEndpoint(""), (Endpoint{"unknown", std::nullopt}));
    EXPECT_EQ(printerEndpoint("USB://Maker/Model"), (Endpoint{"usb", std::nullopt}));
    EXPECT_EQ(printerEndpoint("ipp://Host.example/ipp"), (Endpoint{"ip", "host.example"}));
    EXPECT_EQ(printerEndpoint("socket://192.0.2.9:9100"), (Endpoint{"ip", "192.0.2.9"}));
    EXPECT_EQ(printerEndpoint("lpd queue"), (Endpoint{"ip", std::nullopt}));
    EXPECT_EQ(printerEndpoint("cups-pdf:/"), (Endpoint{"unknown", std::nullopt}));
}

TEST(PrinterSerialNumberTest, comesFromTheItemElseFromTheUri) {
    EXPECT_EQ(printerSerialNumber(parseJson(R"({"serial": "S1"})"), "usb://a?serial=S2"), "S1");
    EXPECT_EQ(printerSerialNumber(Json::object(), "usb://a?x=1&serial=S2&y"), "S2");
    EXPECT_EQ(printerSerialNumber(Json::object(), "usb://a/serial=S2"), "");
    EXPECT_EQ(printerSerialNumber(Json::object(), "usb://a?noserial=S2"), "");
}

TEST(NeedsUsbHostAnswerTest, onlyWhereTheOldTypeIsEmptyOnANewSystem) {
    const Json empty = parseJson(R"({"SPUSBDataType": []})");
    const Json full = parseJson(R"({"SPUSBDataType": [{}]})");
    EXPECT_TRUE(needsUsbHostAnswer(empty, "26.0.0"));
    EXPECT_TRUE(needsUsbHostAnswer(Json::object(), "27.1.0"));
    EXPECT_FALSE(needsUsbHostAnswer(full, "26.0.0"));
    EXPECT_FALSE(needsUsbHostAnswer(empty, "15.9.9"));
    EXPECT_FALSE(needsUsbHostAnswer(empty, ""));
}

}  // namespace
}  // namespace orv
