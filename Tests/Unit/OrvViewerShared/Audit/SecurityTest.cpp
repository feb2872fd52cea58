#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/Security.h"
#include "Support/AuditFixture.h"

namespace orv {
namespace {

class SecurityTest : public AuditFixture {
protected:
    AuditRun run = newRun();
};

TEST_F(SecurityTest, passesTheAnswersOn) {
    tool("/usr/libexec/ApplicationFirewall/socketfilterfw", {"--getglobalstate"},
         "Firewall is blocking all, State 2.\n");
    tool("/usr/bin/fdesetup", {"status"}, "FileVault is On.\nEncryption in progress: 42\n");
    tool("/usr/bin/csrutil", {"status"}, " System Integrity Protection status: enabled.\n\n");
    EXPECT_EQ(loop.run(security(run)), parseJson(R"({
        "source": "macos-native", "firewall": "Firewall is blocking all, State 2.",
        "filevault": "FileVault is On.\nEncryption in progress: 42",
        "sip": "System Integrity Protection status: enabled."})"));
}

TEST_F(SecurityTest, isUnknownWhenToolsSayNothing) {
    tool("/usr/bin/fdesetup", {"status"}, " \n");
    toolAlways("/usr/bin/csrutil", {.standardOutput = "x", .end = Exited{1}});
    EXPECT_EQ(loop.run(security(run)),
              parseJson(R"({"source": "macos-native", "firewall": "unknown",
                            "filevault": "unknown", "sip": "unknown"})"));
}

TEST_F(SecurityTest, patchesAreTheToolsListAsItCame) {
    tool("/usr/sbin/softwareupdate", {"-l"}, "Software Update Tool\n\n* Label: A-1\n");
    EXPECT_EQ(loop.run(patches(run)),
              parseJson(R"({"source": "softwareupdate", "last_update_at": null,
                            "pending_raw": "Software Update Tool\n\n* Label: A-1"})"));
}

TEST_F(SecurityTest, patchesAreEmptyWithoutTheTool) {
    EXPECT_EQ(loop.run(patches(run))["pending_raw"], "");
}

}  // namespace
}  // namespace orv
