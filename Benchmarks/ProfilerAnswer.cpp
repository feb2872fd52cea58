// Times what the inventory does with a big answer of the system profiler, from its text to the
// records, and prints the seconds of every repetition as JSON.
//
//     bench-profiler-answer REPETITIONS HUBS
//
// Every bus has so many hubs. The inventory carries all that hangs on the first buses, and nothing
// of those that are beyond its limit.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fmt/format.h>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/Peripherals.h"

namespace {

constexpr std::size_t answerBytes = 5'000'000;

orv::Json usbDevice(int number) {
    return {{"_name", fmt::format("Keyboard number {} with a name of usual length", number)},
            {"bcd_device", "1.00"},
            {"bus_power", "500"},
            {"bus_power_used", "100"},
            {"device_speed", "full_speed"},
            {"location_id", fmt::format("0x{:08x} / {}", number * 4096, number)},
            {"manufacturer", "A maker of keyboards and mice"},
            {"product_id", fmt::format("0x{:04x}", number % 65536)},
            {"serial_num", fmt::format("SN{:012}", number)},
            {"vendor_id", "0x05ac  (Apple Inc.)"}};
}

orv::Json usbHub(int& devices) {
    orv::Json hub = usbDevice(++devices);
    hub["_items"] = orv::Json::array();
    for (int i = 0; i < 8; ++i)
        hub["_items"].push_back(usbDevice(++devices));
    return hub;
}

/// Hubs with eight devices each, as deep as a tidy desk has them.
std::string profilerAnswer(int hubsOfABus, int& devices) {
    orv::Json buses = orv::Json::array();
    std::size_t size = 0;
    devices = 0;
    while (size < answerBytes) {
        orv::Json bus{{"_name", "USB31Bus"}, {"host_controller", "AppleT6000USBXHCI"}};
        bus["_items"] = orv::Json::array();
        for (int i = 0; i < hubsOfABus; ++i)
            bus["_items"].push_back(usbHub(devices));
        size += bus.dump(2, ' ').size();
        buses.push_back(std::move(bus));
    }
    orv::Json answer{{"SPUSBDataType", std::move(buses)},
                     {"SPDisplaysDataType", orv::Json::array()},
                     {"SPPrintersDataType", orv::Json::array()}};
    return answer.dump(2, ' ');
}

double secondsOnce(const std::string& answer, std::size_t& records) {
    const auto begin = std::chrono::steady_clock::now();
    if (!orv::isValidUtf8(answer)) std::abort();
    orv::ProfilerAnswers answers;
    answers.main = orv::parseJson(answer, orv::untilRecordsAreFull());
    const orv::Json made = orv::peripheralRecords(std::move(answers));
    const auto end = std::chrono::steady_clock::now();
    records = made.size();
    return std::chrono::duration<double>(end - begin).count();
}

}  // namespace

int main(int count, char** arguments) {
    const int repetitions = count > 1 ? std::atoi(arguments[1]) : 25;
    const int hubsOfABus = count > 2 ? std::atoi(arguments[2]) : 1;
    int devices = 0;
    const std::string answer = profilerAnswer(hubsOfABus, devices);
    std::size_t records = 0;
    orv::Json seconds = orv::Json::array();
    for (int i = 0; i < repetitions; ++i)
        seconds.push_back(secondsOnce(answer, records));
    const orv::Json found{
        {"bytes", answer.size()}, {"devices", devices}, {"records", records}, {"seconds", seconds}};
    std::puts(found.dump().c_str());
}
