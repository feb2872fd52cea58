#include "OrvViewerShared/Audit/RemoteTools.h"

#include <algorithm>
#include <utility>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Audit/ConfigId.h"

namespace orv {

namespace {

constexpr std::uint64_t maximumFileBytes = 1 << 20;

/// A file of a remote-desktop tool, as a path of the Mac.
struct Candidate {
    std::string path;
    Links links = Links::follow;
};
using Candidates = std::vector<Candidate>;

void addFilesOfUser(Candidates& candidates, const std::optional<std::string>& home,
                    std::initializer_list<const char*> pathsBelowHome) {
    if (!home) return;
    for (const char* path : pathsBelowHome) {
        candidates.push_back({*home + path, Links::refuse});
    }
}

std::optional<std::string> contentOf(const SystemRoot& root, const Candidate& file) {
    try {
        return readFile(root.locate(file.path), maximumFileBytes, file.links);
    } catch (const FileError&) {
        return std::nullopt;
    }
}

bool isPresent(const SystemRoot& root, const std::string& path) {
    return fileExists(root.locate(path));
}

/// What a worker finds out about one tool's files.
struct FoundFiles {
    bool hasApplication = false;
    std::vector<std::string> existing;
    std::optional<std::string> id;
};

using IdReader = std::optional<std::string> (*)(std::string_view text);

FoundFiles findFiles(const SystemRoot& root, const std::vector<std::string>& applications,
                     const Candidates& candidates, IdReader readId) {
    FoundFiles found;
    found.hasApplication =
        std::any_of(applications.begin(), applications.end(),
                    [&](const std::string& path) { return isPresent(root, path); });
    for (const Candidate& candidate : candidates) {
        if (!isPresent(root, candidate.path)) continue;
        found.existing.push_back(candidate.path);
        if (readId == nullptr || found.id) continue;
        if (const auto content = contentOf(root, candidate)) found.id = readId(*content);
    }
    return found;
}

/// Files may lie on a network volume, so that even looking for them is work for a worker.
Task<FoundFiles> findFilesOnWorker(AuditRun& run, std::vector<std::string> applications,
                                   Candidates candidates, IdReader readId) {
    auto work = [root = run.root, applications = std::move(applications),
                 candidates = std::move(candidates),
                 readId] { return findFiles(root, applications, candidates, readId); };
    FoundFiles found = co_await run.workers.run(std::move(work));
    co_return found;
}

Task<std::optional<std::string>> homeDirectory(AuditRun& run, std::string user) {
    if (!isPlainUserName(user)) co_return std::nullopt;
    std::vector<std::string> arguments = {".", "-read", "/Users/" + user, "NFSHomeDirectory"};
    const std::string answer = co_await run.tools.text("/usr/bin/dscl", std::move(arguments));
    const std::optional<std::string> home = parseHomeDirectory(answer);
    if (!home) co_return std::nullopt;
    auto exists = [place = run.root.locate(*home)] { return fileExists(place + "/."); };
    const bool isThere = co_await run.workers.run(std::move(exists));
    co_return isThere ? home : std::nullopt;
}

Json probeObject(const char* provider, const FoundFiles& found, const char* pathsKey) {
    Json probe = {{"provider", provider},
                  {"installed", found.hasApplication || !found.existing.empty()},
                  {pathsKey, found.existing}};
    if (found.id) probe["id"] = *found.id;
    return probe;
}

Task<Json> anyDeskProbe(AuditRun& run, std::optional<std::string> home) {
    Candidates files = {{"/etc/anydesk/service.conf"},
                        {"/Library/Application Support/AnyDesk/service.conf"},
                        // Where today's versions keep the identifier.
                        {"/etc/anydesk/system.conf"}};
    addFilesOfUser(files, home, {"/.anydesk/service.conf", "/.anydesk/system.conf"});
    std::vector<std::string> applications = {"/Applications/AnyDesk.app"};
    const FoundFiles found =
        co_await findFilesOnWorker(run, std::move(applications), std::move(files), anyDeskId);
    co_return probeObject("anydesk", found, "configuration_paths");
}

/// One after the other: usually there is one list, and the first identifier ends the search.
Task<std::optional<std::string>> teamViewerIdIn(AuditRun& run, std::vector<std::string> lists) {
    for (const std::string& list : lists) {
        std::vector<std::string> arguments = {"read", run.root.locate(list)};
        const std::string answer =
            co_await run.tools.text("/usr/bin/defaults", std::move(arguments));
        std::optional<std::string> id = teamViewerId(answer);
        if (id) co_return id;
    }
    co_return std::nullopt;
}

Task<Json> teamViewerProbe(AuditRun& run, std::optional<std::string> home) {
    Candidates lists = {
        {"/Library/Preferences/com.teamviewer.teamviewer.preferences.plist"},
        {"/Library/Preferences/com.teamviewer.teamviewer.preferences.Machine.plist"}};
    addFilesOfUser(lists, home,
                   {"/Library/Preferences/com.teamviewer.teamviewer.preferences.plist",
                    "/Library/Preferences/com.teamviewer.teamviewer.preferences.Machine.plist"});
    std::vector<std::string> applications = {"/Applications/TeamViewer.app",
                                             "/Applications/TeamViewer Host.app",
                                             "/Applications/TeamViewerHost.app"};
    FoundFiles found =
        co_await findFilesOnWorker(run, std::move(applications), std::move(lists), nullptr);
    found.id = co_await teamViewerIdIn(run, found.existing);
    co_return probeObject("teamviewer", found, "preference_paths");
}

Task<bool> isServiceRunningAt(AuditRun& run, std::string target) {
    std::vector<std::string> arguments = {"print", std::move(target)};
    const std::string answer = co_await run.tools.text("/bin/launchctl", std::move(arguments));
    co_return isServiceRunning(answer);
}

Task<bool> isServerAgentRunning(AuditRun& run, std::string user) {
    if (!isPlainUserName(user)) co_return false;
    std::vector<std::string> arguments = {"-u", user};
    const std::string uid = co_await run.tools.text("/usr/bin/id", std::move(arguments));
    const bool isNumber = !uid.empty() && uid.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber) co_return false;
    std::string target = "gui/" + uid + "/com.carriez.RustDesk_server";
    const bool isRunning = co_await isServiceRunningAt(run, std::move(target));
    co_return isRunning;
}

struct RustDeskFacts {
    std::optional<std::string> home;
    FoundFiles files;
    bool isServerAgentRunning = false;
    bool isServiceDaemonRunning = false;
};

constexpr const char* rustDeskApplication = "/Applications/RustDesk.app";
constexpr const char* rustDeskFolder = "/Library/Preferences/com.carriez.RustDesk";

Task<FoundFiles> findRustDeskFiles(AuditRun& run, std::optional<std::string> home) {
    Candidates files;
    const std::string folder = std::string(rustDeskFolder);
    for (const char* name :
         {"/RustDesk.toml", "/RustDesk2.toml", "/RustDesk_local.toml", "/RustDesk_default.toml"}) {
        if (home) files.push_back({*home + folder + name, Links::refuse});
    }
    std::vector<std::string> applications = {rustDeskApplication};
    FoundFiles found = co_await findFilesOnWorker(run, std::move(applications), std::move(files),
                                                  rustDeskIdFromToml);
    co_return found;
}

Json rustDeskObject(const RustDeskFacts& facts, const std::string& user) {
    const bool isRunning = facts.isServerAgentRunning || facts.isServiceDaemonRunning;
    Json probe = {
        {"provider", "rustdesk"},
        {"installed", facts.files.hasApplication},
        {"status",
         rustDeskStatus(facts.files.hasApplication, isRunning, facts.files.id.has_value())},
        {"app_path", rustDeskApplication},
        {"console_user", user},
        {"config_directory", facts.home ? *facts.home + rustDeskFolder : std::string()},
        {"server_launch_agent_running", facts.isServerAgentRunning},
        {"service_launch_daemon_running", facts.isServiceDaemonRunning},
    };
    if (facts.files.id) probe["id"] = *facts.files.id;
    return probe;
}

/// The services do not depend on the home folder, so they need not wait for it.
struct RemoteToolFacts {
    RemoteToolProbes probes;
    RustDeskFacts rustDesk;
};

Task<void> lookIntoHome(AuditRun& run, std::string user, RemoteToolFacts* facts) {
    facts->rustDesk.home = co_await homeDirectory(run, std::move(user));
    const std::optional<std::string>& home = facts->rustDesk.home;
    SideBySide tools(run);
    tools.fill("AnyDesk", facts->probes.anyDesk, anyDeskProbe(run, home));
    tools.fill("TeamViewer", facts->probes.teamViewer, teamViewerProbe(run, home));
    tools.fill("RustDesk files", facts->rustDesk.files, findRustDeskFiles(run, home));
    co_await tools.join();
}

std::optional<std::string> idOf(const Json& probe) {
    return textIfPresent(probe, "id");
}

}  // namespace

bool isPlainUserName(std::string_view name) {
    const bool hasControls = std::any_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    });
    return !name.empty() && name != "." && name != ".." && !name.starts_with('-') &&
           name.find('/') == std::string_view::npos && !hasControls;
}

std::optional<std::string> parseHomeDirectory(std::string_view answer) {
    constexpr std::string_view label = "NFSHomeDirectory:";
    const std::vector<std::string_view> lines = linesOf(answer);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!lines[i].starts_with(label)) continue;
        std::string home = trimmed(lines[i].substr(label.size()));
        if (home.empty() && i + 1 < lines.size()) home = trimmed(lines[i + 1]);
        if (home.starts_with('/')) return home;
        return std::nullopt;
    }
    return std::nullopt;
}

bool isServiceRunning(std::string_view answer) {
    const std::vector<std::string_view> lines = linesOf(answer);
    return std::any_of(lines.begin(), lines.end(),
                       [](std::string_view line) { return trimmed(line) == "state = running"; });
}

std::string rustDeskStatus(bool isInstalled, bool isRunning, bool hasId) {
    if (!isInstalled) return "not_installed";
    if (isRunning) return hasId ? "online" : "running_no_id";
    return hasId ? "installed" : "installed_no_id";
}

Task<RemoteToolProbes> probeRemoteTools(AuditRun& run, std::string consoleUser) {
    RemoteToolFacts facts;
    SideBySide parts(run);
    parts.run("remote-desktop tools", lookIntoHome(run, consoleUser, &facts));
    parts.fill("RustDesk's agent", facts.rustDesk.isServerAgentRunning,
               isServerAgentRunning(run, consoleUser));
    parts.fill("RustDesk's daemon", facts.rustDesk.isServiceDaemonRunning,
               isServiceRunningAt(run, "system/com.carriez.RustDesk_service"));
    co_await parts.join();
    facts.probes.rustDesk = rustDeskObject(facts.rustDesk, consoleUser);
    co_return std::move(facts.probes);
}

void RemoteToolProbes::addToInventory(Json& inventory) const {
    if (const auto id = idOf(rustDesk)) inventory["rustdesk_id"] = inventory["rustdeskId"] = *id;
    const std::string status = textIfPresent(rustDesk, "status").value_or("");
    inventory["rustdesk_status"] = inventory["rustdeskStatus"] = status;
    if (const auto id = idOf(teamViewer)) {
        inventory["teamviewer_id"] = inventory["teamviewerId"] = *id;
    }
    if (const auto id = idOf(anyDesk)) inventory["anydesk_id"] = inventory["anydeskId"] = *id;
    inventory["remote"] = {
        {"anydesk", anyDesk}, {"teamviewer", teamViewer}, {"rustdesk", rustDesk}};
}

void RemoteToolProbes::addToHeartbeat(Json& heartbeat) const {
    if (const auto id = idOf(rustDesk)) heartbeat["rustdesk_id"] = *id;
    const auto status = textIfPresent(rustDesk, "status");
    if (status && *status != "not_installed") heartbeat["rustdesk_status"] = *status;
    if (const auto id = idOf(teamViewer)) heartbeat["teamviewer_id"] = *id;
    if (const auto id = idOf(anyDesk)) heartbeat["anydesk_id"] = *id;
}

}  // namespace orv
