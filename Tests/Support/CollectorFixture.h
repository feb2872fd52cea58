#pragma once

#include <string>
#include <utility>
#include <vector>

#include "OrvViewerShared/MacAuditCollector.h"
#include "Support/AuditFixture.h"
#include "Support/FakeHostFacts.h"

namespace orv {

/// The whole collector on a Mac of a test's making.
class CollectorFixture : public AuditFixture {
protected:
    CollectorFixture() { settings.viewerToken = " viewer-1 "; }

    /// A portable Mac whose every source answers.
    void laptop() {
        tool("/usr/bin/uname", {"-r"}, "24.5.0\n");
        tool("/usr/bin/uname", {"-m"}, "arm64\n");
        tool("/usr/sbin/sysctl", {"machdep.cpu.brand_string"},
             "machdep.cpu.brand_string: Apple M3\n");
        tool("/usr/sbin/sysctl", {"hw.model"}, "hw.model: Mac15,3\n");
        tool("/usr/sbin/sysctl", {"-n", "kern.boottime"}, "{ sec = 1772352000, usec = 0 } x\n");
        tool("/usr/bin/vm_stat", {}, "page size of 16384 bytes\nPages active: 100.\n");
        tool("/usr/bin/pmset", {"-g", "batt"},
             "Now drawing from 'AC Power'\n -InternalBattery-0 (id=1)\t80%; charging; 0:40 "
             "remaining present: true\n");
        tool("/sbin/ifconfig", {"-a"}, "en0:\n\tether a4:83:e7:00:00:01\n");
        tool("/usr/libexec/ApplicationFirewall/socketfilterfw", {"--getglobalstate"}, "on\n");
        tool("/usr/bin/fdesetup", {"status"}, "FileVault is On.\n");
        tool("/usr/bin/csrutil", {"status"}, "enabled.\n");
        tool("/usr/bin/dscl", {".", "-list", "/Users"}, "anna\n");
        tool("/usr/bin/lpstat", {"-p"}, "printer a is idle.\n");
        tool("/usr/sbin/softwareupdate", {"-l"}, "Software Update Tool\n");
        tool("/usr/sbin/system_profiler", {"SPHardwareDataType", "-json"},
             R"({"SPHardwareDataType": [{"_name": "hardware_overview"}]})");
        tool("/usr/sbin/system_profiler",
             {"SPUSBDataType", "SPDisplaysDataType", "SPPrintersDataType", "-json"},
             R"({"SPPrintersDataType": [{"_name": "P"}]})");
        file("/System/Library/CoreServices/SystemVersion.plist",
             "<plist version=\"1.0\"><dict><key>ProductBuildVersion</key><string>24F74</string>"
             "</dict></plist>");
        application("/Applications/Tool.app",
                    "<key>NSHumanReadableCopyright</key><string>© 2020 Acme</string>");
    }

    /// Its user with all three remote-desktop tools.
    void remoteTools() {
        folder("/Users/anna");
        tool("/usr/bin/dscl", {".", "-read", "/Users/anna", "NFSHomeDirectory"},
             "NFSHomeDirectory: /Users/anna\n");
        file("/etc/anydesk/system.conf", "ad.anynet.id=111\n");
        file(teamViewerList, "x");
        tool("/usr/bin/defaults", {"read", root.locate(teamViewerList)}, "ClientID = 222;");
        folder("/Applications/RustDesk.app");
        file("/Users/anna/Library/Preferences/com.carriez.RustDesk/RustDesk.toml", "id = '333'\n");
    }

    MacAuditCollector collector() {
        auto volumes = [](const SystemRoot&) {
            return std::vector<Volume>{{"Dysk", "/", 1000, 400, "apfs"}};
        };
        return MacAuditCollector(
            {settings, shell, host, clock, workers, logger, root, loop.executor(), volumes});
    }

    Json inventory() {
        MacAuditCollector made = collector();
        return loop.run(made.collect());
    }

    Json heartbeat(ViewerState state = {}) {
        MacAuditCollector made = collector();
        return loop.run(made.heartbeatPayload(std::move(state)));
    }

    static std::vector<std::string> keysOf(const Json& object) {
        std::vector<std::string> keys;
        for (const auto& [key, value] : object.items())
            keys.push_back(key);
        return keys;
    }

    static constexpr const char* teamViewerList =
        "/Library/Preferences/com.teamviewer.teamviewer.preferences.plist";
    ViewerSettings settings;
    FakeHostFacts host;
    ViewerLogger logger{root, clock};
};

}  // namespace orv
