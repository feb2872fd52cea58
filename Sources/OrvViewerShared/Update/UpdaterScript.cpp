#include "OrvViewerShared/Update/UpdaterScript.h"

#include <algorithm>

#include <fmt/format.h>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/Text.h"
#include "OrvViewerShared/Update/UpdatePaths.h"
#include "OrvViewerShared/Update/UpdaterScriptTemplate.h"

namespace orv {

namespace {

// Names have a limit of 255 bytes.
constexpr std::size_t longestVersionInName = 150;

/// A JSON literal that bash reads as a double-quoted word: the same quotes and backslashes mean
/// the same there, and what else would be live is escaped.
std::string doubleQuoted(const std::string& value) {
    std::string word;
    for (const char c : jsonLiteral(value)) {
        if (c == '$' || c == '`') word += '\\';
        word += c;
    }
    return word;
}

/// Nothing is live between single quotes. A variable of bash cannot hold NUL.
std::string singleQuoted(std::string_view value) {
    std::string word = "'";
    for (const char c : value) {
        if (c == '\'') {
            word += R"('"'"')";
        } else if (c != '\0') {
            word += c;
        }
    }
    return word + "'";
}

std::string quotedJson(const std::string& value) {
    return singleQuoted(jsonLiteral(value));
}

bool isHarmlessInName(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte != 0x7F && c != '/' && c != '\\';
}

/// The beginning that fits, no character cut in two.
std::string_view shortened(std::string_view text, std::size_t limitBytes) {
    if (text.size() <= limitBytes) return text;
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    while (limitBytes > 0 && continues(text[limitBytes]))
        --limitBytes;
    return text.substr(0, limitBytes);
}

std::string header(const UpdaterScriptPlan& plan) {
    const std::string& version = plan.availableVersion;
    std::string lines;
    const auto assign = [&lines](const char* name, const std::string& value) {
        lines += fmt::format("  {}={}\n", name, value);
    };
    assign("UPDATE_DIR", doubleQuoted(paths::updatesDirectory));
    assign("RUNTIME_DIR", doubleQuoted(paths::updateRuntimeDirectory));
    assign("STATUS_PATH", doubleQuoted(paths::updateStatusPath));
    assign("UPDATER_SCRIPT", doubleQuoted(paths::updaterScriptPath));
    assign("PKG_PATH", doubleQuoted(updatePackagePath(version)));
    assign("LOG_PATH", doubleQuoted(paths::updateLogPath));
    assign("PKG_URL", doubleQuoted(plan.packageUrl));
    assign("UPDATER_PLIST", doubleQuoted(paths::updaterJobPath));
    assign("EXPECTED_SHA", doubleQuoted(plan.sha256));
    assign("EXPECTED_SIZE", std::to_string(plan.sizeBytes));
    assign("CURRENT_VERSION_JSON", quotedJson(plan.currentVersion));
    assign("AVAILABLE_VERSION_JSON", quotedJson(version));
    assign("AVAILABLE_VERSION_RAW", singleQuoted(version));
    assign("BACKUP_VERSION", doubleQuoted(plan.currentVersion));
    assign("LOG_PATH_JSON", quotedJson(paths::updateLogPath));
    assign("DOWNLOADING_MESSAGE_JSON",
           quotedJson(fmt::format("Pobieram aktualizację do wersji {}...", version)));
    assign("INSTALLING_MESSAGE_JSON",
           quotedJson(fmt::format("Instaluję aktualizację do wersji {}...", version)));
    assign("INSTALLED_MESSAGE_JSON",
           quotedJson(fmt::format("Aktualizacja do wersji {} została zainstalowana. Aplikacja "
                                  "uruchamia się ponownie.",
                                  version)));
    assign("FAILED_MESSAGE_JSON",
           quotedJson("Aktualizacja nie powiodła się. Szczegóły są w logu aktualizacji."));
    lines.pop_back();
    return lines;
}

std::string banner(const UpdaterScriptPlan& plan) {
    return fmt::format("Wsparo Brenvox macOS update {} -> {}, reason={}", plan.currentVersion,
                       plan.availableVersion, plan.reason);
}

}  // namespace

std::string jsonLiteral(const std::string& value) {
    return isValidUtf8(value) ? Json(value).dump() : R"("")";
}

std::string updatePackagePath(std::string_view version) {
    std::string part(shortened(version, longestVersionInName));
    std::replace_if(part.begin(), part.end(), [](char c) { return !isHarmlessInName(c); }, '_');
    if (part.starts_with('.')) part.front() = '_';
    return fmt::format("{}/Wsparo-Brenvox-macOS-{}.pkg", paths::updatesDirectory, part);
}

std::string updaterScript(const UpdaterScriptPlan& plan) {
    constexpr std::string_view planMark = "@PLAN@";
    constexpr std::string_view bannerMark = "@BANNER@";
    constexpr std::string_view whole = updaterScriptTemplate;
    constexpr std::size_t planPlace = whole.find(planMark);
    constexpr std::size_t bannerPlace = whole.find(bannerMark);
    static_assert(planPlace < bannerPlace && bannerPlace < whole.size());

    constexpr std::size_t afterPlan = planPlace + planMark.size();
    std::string script(whole.substr(0, planPlace));
    script += header(plan);
    script += whole.substr(afterPlan, bannerPlace - afterPlan);
    script += singleQuoted(banner(plan));
    script += whole.substr(bannerPlace + bannerMark.size());
    return script;
}

}  // namespace orv
