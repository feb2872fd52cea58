#include "OrvViewerShared/Audit/Security.h"

#include <optional>
#include <string>
#include <utility>

namespace orv {

namespace {

using Answer = std::optional<std::string>;

Json securityObject(const Answer& firewall, const Answer& fileVault, const Answer& sip) {
    return {
        {"source", "macos-native"},
        {"firewall", firewall.value_or("unknown")},
        {"filevault", fileVault.value_or("unknown")},
        {"sip", sip.value_or("unknown")},
    };
}

Json patchesObject(const std::string& pending) {
    return {{"source", "softwareupdate"}, {"pending_raw", pending}, {"last_update_at", nullptr}};
}

}  // namespace

Task<Json> security(AuditRun& run) {
    Answer firewall;
    Answer fileVault;
    Answer sip;
    SideBySide sources(run);
    sources.fill(
        "firewall", firewall,
        run.tools.answer("/usr/libexec/ApplicationFirewall/socketfilterfw", {"--getglobalstate"}));
    sources.fill("FileVault", fileVault, run.tools.answer("/usr/bin/fdesetup", {"status"}));
    sources.fill("integrity protection", sip, run.tools.answer("/usr/bin/csrutil", {"status"}));
    co_await sources.join();
    co_return securityObject(firewall, fileVault, sip);
}

Task<Json> patches(AuditRun& run) {
    std::vector<std::string> arguments = {"-l"};
    const std::string pending =
        co_await run.tools.text("/usr/sbin/softwareupdate", std::move(arguments));
    co_return patchesObject(pending);
}

}  // namespace orv
