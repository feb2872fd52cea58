#include "OrvViewerShared/Commands/UninstallCommand.h"

#include <string_view>
#include <utility>

#include "OrvPlatform/Iso8601.h"

namespace orv {

namespace {

/// Everything after the line that says where the Mac is.
///
/// Anybody may have put something at the log's place in /tmp: a link or a hard link to a file that
/// must not be written, a pipe that nobody reads. In a folder with a sticky bit nobody but root can
/// replace a file of root's with a single name, so only such a file is appended to. Otherwise a
/// fresh one is made under an unpredictable name and linked to the log's place, which neither
/// follows nor replaces what somebody puts there in that moment; then only the log is lost.
constexpr std::string_view jobText = R"job(log=$mac/tmp/wsparo-brenvox-uninstall.log

openLog() {
    if [ -f "$log" ] && [ ! -L "$log" ] && [ -O "$log" ] &&
        [ "$("$mac/usr/bin/stat" -f %l "$log")" = 1 ]; then
        exec >>"$log" 2>&1
        return
    fi
    "$mac/bin/rm" -rf "$log"
    local fresh
    fresh=$("$mac/usr/bin/mktemp" "$log.XXXXXXXX") || return
    exec >>"$fresh" 2>&1
    "$mac/bin/ln" -n "$fresh" "$log"
    "$mac/bin/rm" -f "$fresh"
}

bootout() { # domain job-file
    "$mac/bin/launchctl" bootout "$1" "$mac$2"
}

delete() { # path...
    local path
    for path; do "$mac/bin/rm" -rf "$mac$path"; done
}

uninstall() {
    local uid
    umask 077
    openLog
    "$mac/bin/sleep" 2

    bootout system /Library/LaunchDaemons/pl.brenvox.wsparo.daemon.plist
    bootout system /Library/LaunchDaemons/pl.dalvenor.orvdesk.viewer.daemon.plist

    uid=$("$mac/usr/bin/stat" -f %u "$mac/dev/console")
    case $uid in
        '' | 0 | *[!0-9]*) ;;
        *)
            bootout "gui/$uid" /Library/LaunchAgents/pl.brenvox.wsparo.menubar.plist
            bootout "gui/$uid" /Library/LaunchAgents/pl.dalvenor.orvdesk.viewer.menubar.plist
            ;;
    esac

    delete /Library/LaunchDaemons/pl.brenvox.wsparo.daemon.plist \
        /Library/LaunchDaemons/pl.dalvenor.orvdesk.viewer.daemon.plist \
        /Library/LaunchAgents/pl.brenvox.wsparo.menubar.plist \
        /Library/LaunchAgents/pl.dalvenor.orvdesk.viewer.menubar.plist

    delete '/Applications/Wsparo Brenvox.app' '/Applications/Wsparo Brenvox.localized' \
        /Applications/Wsparbox.app /Applications/Orv-Viewer.app \
        '/Applications/Centrum Wsparo Brenvox.app'

    delete '/Library/Application Support/Wsparo Brenvox' \
        '/Library/Application Support/Orv-Desk Viewer' \
        '/Library/Logs/Wsparo Brenvox'

    "$mac/usr/sbin/pkgutil" --forget pl.dalvenor.orvdesk.viewer
    "$mac/usr/sbin/pkgutil" --forget pl.brenvox.wsparo
}

uninstall &
)job";

/// Whatever it holds.
std::string asShellWord(std::string_view text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

}  // namespace

std::string uninstallJob(const SystemRoot& root) {
    std::string mac = root.locate("/");
    mac.pop_back();
    return "#!/bin/bash\nmac=" + asShellWord(mac) + "\n" + std::string(jobText);
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
