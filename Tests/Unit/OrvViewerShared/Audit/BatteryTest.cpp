#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/Battery.h"

namespace orv {
namespace {

Json batteryOf(const std::string& line) {
    return batteryObject("Now drawing from 'AC Power'\n " + line);
}

TEST(BatteryTest, readsTheInternalBatterysLine) {
    EXPECT_EQ(batteryObject("Now drawing from 'Battery Power'\n"
                            " -InternalBattery-0 (id=4653155)\t81%; discharging; 3:12 remaining "
                            "present: true"),
              parseJson(R"({"source": "pmset", "present": true, "percent": 81,
                            "state": "discharging", "time_remaining": "3:12"})"));
}

TEST(BatteryTest, knowsEveryState) {
    for (const char* state :
         {"charging", "discharging", "charged", "finishing charge", "AC attached"}) {
        EXPECT_EQ(batteryOf("-InternalBattery-0 5%; " + std::string(state) + "; x")["state"],
                  state);
    }
    EXPECT_FALSE(batteryOf("-InternalBattery-0 5%; lädt; x").contains("state"));
}

TEST(BatteryTest, leavesOutWhatIsUnknown) {
    EXPECT_EQ(batteryOf("-InternalBattery-0 \t90%; charging; (no estimate) present: true"),
              parseJson(R"({"source": "pmset", "present": true, "percent": 90,
                            "state": "charging"})"));
    EXPECT_EQ(batteryOf("-InternalBattery-0\t2%; AC attached; not charging"),
              parseJson(R"({"source": "pmset", "present": true, "percent": 2,
                            "state": "AC attached"})"));
    EXPECT_EQ(batteryOf("-InternalBattery-0 (id=1) 400%; ; -5 remaining present: false"),
              parseJson(R"({"source": "pmset", "present": false})"));
    EXPECT_EQ(batteryObject(""), parseJson(R"({"source": "pmset"})"));
}

TEST(BatteryTest, aDesktopHasNone) {
    EXPECT_FALSE(hasBattery("Now drawing from 'AC Power'"));
    EXPECT_TRUE(hasBattery(" -InternalBattery-0 (id=1)\t1%; charged"));
    EXPECT_EQ(batteryOf("-Northups 900 (id=7)\t100%; charging present: true"),
              parseJson(R"({"source": "pmset", "present": false})"));
}

}  // namespace
}  // namespace orv
