#include "OrvViewerShared/Commands/UninstallCommand.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Commands/UninstallJobTemplate.h"

namespace orv {

namespace {

/// Whatever it holds.
std::string asShellWord(std::string_view text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

}  // namespace

std::string uninstallJob(const SystemRoot& root) {
    constexpr std::string_view mark = "@MAC@";
    constexpr std::string_view whole = uninstallJobTemplate;
    constexpr std::size_t place = whole.find(mark);
    static_assert(place != std::string_view::npos);
    std::string mac = root.locate("/");
    mac.pop_back();
    return std::string(whole.substr(0, place)) + asShellWord(mac) +
           std::string(whole.substr(place + mark.size()));
}

Task<Json> UninstallCommand::startSelfUninstall() {
    ProcessRequest request;
    request.executable = parts.root.locate("/bin/bash");
    request.arguments = {"-c", uninstallJob(parts.root)};
    // When launchd stops a job it also kills what is left of the job's process group.
    request.inOwnSession = true;
    co_await parts.processes.run(std::move(request));
    parts.logger.info("Wsparo Brenvox macOS self-uninstall was scheduled.");
    co_return Json{{"platform", "macos"},
                   {"uninstall_started", true},
                   {"remove_viewer", true},
                   {"remove_rustdesk", false},
                   {"started_at", iso8601(parts.clock.now())}};
}

}  // namespace orv
