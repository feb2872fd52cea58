#include "OrvViewerShared/Audit/ApplicationScan.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <set>
#include <stdlib.h>
#include <string_view>
#include <sys/stat.h>
#include <time.h>
#include <utility>

#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/PropertyList.h"
#include "OrvPlatform/Text.h"

namespace orv {

namespace {

/// The largest lists of real applications have a few hundred kilobytes.
constexpr std::uint64_t maximumListBytes = 4 << 20;
constexpr std::string_view bundleExtension = ".app";

/// Iphone applications, which run on Apple silicon, are wrapped in a bundle of the Mac's form.
constexpr const char* informationListPaths[] = {"/Contents/Info.plist",
                                                "/WrappedBundle/Info.plist"};

std::string firstText(const Json& list, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        std::string text = textIfPresent(list, key).value_or("");
        if (!trimmed(text).empty()) return text;
    }
    return {};
}

std::string yyyyMMddString(time_t time) {
    struct tm local{};
    char text[32] = {};
    if (::localtime_r(&time, &local) == nullptr) return {};
    return std::string(text, ::strftime(text, sizeof text, "%Y-%m-%d", &local));
}

std::string modificationDay(const std::string& location) {
    struct stat attributes{};
    if (::stat(location.c_str(), &attributes) != 0) return {};
    return yyyyMMddString(attributes.st_mtime);
}

std::optional<std::string> resolvedPath(const std::string& location) {
    const std::unique_ptr<char, decltype(&::free)> resolved(::realpath(location.c_str(), nullptr),
                                                            &::free);
    if (resolved == nullptr) return std::nullopt;
    return std::string(resolved.get());
}

std::optional<Json> readInformationList(const std::string& bundleLocation) {
    for (const char* path : informationListPaths) {
        try {
            Json list = parsePropertyList(readFile(bundleLocation + path, maximumListBytes));
            if (list.is_object()) return list;
        } catch (const FileError&) {
            continue;  // the other form, or not readable at all
        } catch (const DecodingError&) {
            continue;  // damaged: the bundle is left out
        }
    }
    return std::nullopt;
}

/// By name, so that of two ways to one bundle the same is kept every time.
std::vector<std::string> bundleNamesIn(const std::string& location) {
    std::vector<std::string> names;
    try {
        for (DirectoryEntry& entry : readDirectory(location)) {
            if (entry.name.ends_with(bundleExtension)) names.push_back(std::move(entry.name));
        }
    } catch (const FileError&) {
        return {};
    }
    std::sort(names.begin(), names.end());
    return names;
}

void sortByName(std::vector<ApplicationBundle>& applications) {
    std::vector<std::pair<std::string, std::size_t>> order;
    order.reserve(applications.size());
    for (std::size_t i = 0; i < applications.size(); ++i) {
        order.emplace_back(lowercased(applications[i].name), i);
    }
    std::sort(order.begin(), order.end());
    std::vector<ApplicationBundle> sorted;
    sorted.reserve(applications.size());
    for (const auto& [key, index] : order) {
        sorted.push_back(std::move(applications[index]));
    }
    applications = std::move(sorted);
}

}  // namespace

ApplicationBundle applicationOf(std::string path, const Json& list) {
    ApplicationBundle application;
    application.name = firstText(list, {"CFBundleDisplayName", "CFBundleName"});
    if (application.name.empty()) {
        const std::string file = lastPathComponent(path);
        application.name =
            replacingInvalidUtf8(file.substr(0, file.size() - bundleExtension.size()));
    }
    application.version = firstText(list, {"CFBundleShortVersionString", "CFBundleVersion"});
    application.bundleIdentifier = firstText(list, {"CFBundleIdentifier"});
    application.copyright = firstText(list, {"NSHumanReadableCopyright"});
    application.infoString = firstText(list, {"CFBundleGetInfoString"});
    application.path = std::move(path);
    return application;
}

std::vector<ApplicationBundle> scanApplications(const SystemRoot& root) {
    std::vector<ApplicationBundle> applications;
    std::set<std::string> seen;
    for (const char* folder :
         {"/Applications", "/System/Applications", "/System/Applications/Utilities"}) {
        for (const std::string& name : bundleNamesIn(root.locate(folder))) {
            std::string path = std::string(folder) + "/" + name;
            const std::string location = root.locate(path);
            const std::optional<Json> list = readInformationList(location);
            const std::optional<std::string> resolved = resolvedPath(location);
            if (!list || !resolved || !seen.insert(*resolved).second) continue;
            applications.push_back(applicationOf(std::move(path), *list));
            applications.back().installedAt = modificationDay(location);
        }
    }
    sortByName(applications);
    return applications;
}

}  // namespace orv
