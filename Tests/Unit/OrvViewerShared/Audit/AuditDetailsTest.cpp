#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/AuditDetails.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AuditDetailsTest : public AuditFixture {
protected:
    Json details() {
        AuditRun run = newRun();
        return loop.run(auditDetails(run));
    }
};

TEST_F(AuditDetailsTest, hasEveryKey) {
    tool("/usr/sbin/system_profiler", {"SPHardwareDataType", "-json"},
         R"({"SPHardwareDataType": [{"machine_model": "Mac15,3", "number_processors": 8}]})");
    tool("/usr/bin/dscl", {".", "-list", "/Users"}, "_www\nanna\n");
    tool("/usr/bin/lpstat", {"-p"}, "printer laser is idle.\n");
    file("/Library/LaunchDaemons/b.plist", "");
    file("/Library/LaunchDaemons/a.plist", "");
    file("/Library/LaunchAgents/c.plist", "");

    EXPECT_EQ(details(), parseJson(R"({
        "system_profiler":
            {"SPHardwareDataType": [{"machine_model": "Mac15,3", "number_processors": 8}]},
        "local_users": "_www\nanna", "printers": "printer laser is idle.",
        "launch_daemons": ["a.plist", "b.plist"], "launch_agents": ["c.plist"],
        "remote_capabilities": {
            "capabilities": {"screen_capture": true, "webrtc": true, "input": true,
                             "clipboard": "NSPasteboard"},
            "notes": ["requires GoogleWebRTC XCFramework",
                      "Accessibility/Input Monitoring permissions required"]}})"));
}

TEST_F(AuditDetailsTest, hasEveryKeyWithoutAnySource) {
    const Json found = details();
    EXPECT_EQ(found["system_profiler"], Json::object());
    EXPECT_EQ(found["local_users"], "");
    EXPECT_EQ(found["printers"], "");
    EXPECT_EQ(found["launch_daemons"], Json::array());
    EXPECT_EQ(found["launch_agents"], Json::array());
}

TEST_F(AuditDetailsTest, listsAtMostSoManyNames) {
    for (int i = 299; i >= 0; --i) {
        std::filesystem::create_directories(directory.path(fmt::format("names/{:03}", i)));
    }
    const std::vector<std::string> names = directoryListing(directory.path("names"), 200);
    ASSERT_EQ(names.size(), 200U);
    EXPECT_EQ(names.front(), "000");
    EXPECT_EQ(names.back(), "199");
}

TEST_F(AuditDetailsTest, listsNothingOfWhatIsNoFolder) {
    file("/plain", "");
    EXPECT_THAT(directoryListing(root.locate("/plain"), 200), IsEmpty());
    EXPECT_THAT(directoryListing(root.locate("/missing"), 200), IsEmpty());
}

TEST_F(AuditDetailsTest, repairsNamesThatAreNoUtf8) {
    folder("/names/a\xff");
    EXPECT_THAT(directoryListing(root.locate("/names"), 200), ElementsAre("a\xEF\xBF\xBD"));
}

}  // namespace
}  // namespace orv
