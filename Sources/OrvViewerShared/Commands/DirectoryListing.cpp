#include "OrvViewerShared/Commands/DirectoryListing.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>
#include <vector>

#include "OrvPlatform/Directory.h"
#include "OrvPlatform/File.h"
#include "OrvPlatform/Iso8601.h"
#include "OrvPlatform/Text.h"
#include "OrvPlatform/Volumes.h"
#include "OrvViewerShared/Commands/CommandError.h"

namespace orv {

namespace {

struct FixedRoot {
    const char* path;
    const char* name;
    const char* kind;
    const char* label;
};

// Names without diacritics: consultants' tools of all kinds show them.
constexpr std::array<FixedRoot, 5> fixedRoots{{
    {"/", "Macintosh HD", "drive", "System"},
    {"/Users", "Uzytkownicy", "folder", "Katalogi domowe"},
    {"/Applications", "Aplikacje", "folder", "Programy"},
    {"/Volumes", "Woluminy", "folder", "Dyski i udzialy"},
    {"/tmp", "Tymczasowe", "folder", "Folder tymczasowy"},
}};

bool comesBefore(const DirectoryEntry& a, const DirectoryEntry& b) {
    if (a.isDirectory != b.isDirectory) return a.isDirectory;
    return compareLocalized(a.name, b.name) < 0;
}

/// Sorts only what will be shown: a folder may have hundreds of thousands of entries.
void keepFirst(std::vector<DirectoryEntry>& entries, std::size_t count) {
    const auto kept = static_cast<std::ptrdiff_t>(std::min(count, entries.size()));
    std::partial_sort(entries.begin(), entries.begin() + kept, entries.end(), comesBefore);
    entries.erase(entries.begin() + kept, entries.end());
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder == "/" ? "/" + name : folder + "/" + name;
}

Json listingEntry(const SystemRoot& root, const std::string& folder, const DirectoryEntry& entry) {
    const std::string path = joined(folder, entry.name);
    const auto attributes = readAttributes(root.locate(path));
    const bool isFolder = attributes ? attributes->isDirectory : entry.isDirectory;
    Json item{{"name", entry.name},
              {"path", path},
              {"kind", isFolder ? "folder" : "file"},
              {"is_directory", isFolder}};
    if (!attributes) return item;
    if (!isFolder) item["size_bytes"] = attributes->sizeBytes;
    item["modified_at"] = iso8601(attributes->modifiedAt);
    item["is_symlink"] = attributes->isSymbolicLink;
    return item;
}

/// With one "/" in front and none at the end.
std::string normalizedPath(const std::string& path) {
    const std::size_t begin = path.find_first_not_of('/');
    if (begin == std::string::npos) return "/";
    return "/" + trimmedTrailingSlash(path.substr(begin));
}

Json fixedRootEntry(const SystemRoot& root, const FixedRoot& fixed, const std::string& path) {
    return Json{{"name", fixed.name},
                {"path", path},
                {"kind", fixed.kind},
                {"label", fixed.label},
                {"is_directory", isDirectory(root.locate(path))},
                {"is_ready", true}};
}

Json volumeEntry(const std::string& location, const std::string& path,
                 const DirectoryEntry& volume) {
    Json entry{{"name", volumeLocalizedName(location).value_or(volume.name)},
               {"path", path},
               {"kind", "drive"},
               {"label", "Wolumin"},
               {"is_directory", volume.isDirectory},
               {"is_ready", true}};
    if (const auto capacity = volumeCapacity(location)) {
        entry["size_bytes"] = capacity->totalBytes;
        entry["free_bytes"] = capacity->availableBytes;
    }
    return entry;
}

std::vector<DirectoryEntry> visibleVolumes(const SystemRoot& root) {
    std::vector<DirectoryEntry> volumes;
    try {
        volumes = readDirectory(root.locate("/Volumes"));
    } catch (const FileError&) {
        return {};  // the fixed places are listed all the same
    }
    std::erase_if(volumes, [](const DirectoryEntry& entry) { return entry.name.starts_with('.'); });
    std::sort(volumes.begin(), volumes.end(),
              [](const auto& a, const auto& b) { return compareLocalized(a.name, b.name) < 0; });
    return volumes;
}

}  // namespace

bool asksForRoots(const std::string& path) {
    const std::string word = lowercased(path);
    return word.empty() || word == "roots" || word == "drives" || word == "volumes";
}

Json directoryListing(const SystemRoot& root, const std::string& path, std::size_t maxItems) {
    const std::string folder = normalizedPath(path);
    if (!isDirectory(root.locate(folder))) {
        throw fileTransferError(404, "Directory not found: " + path);
    }
    std::vector<DirectoryEntry> entries = readDirectory(root.locate(folder));
    keepFirst(entries, maxItems);
    Json items = Json::array();
    for (const DirectoryEntry& entry : entries)
        items.push_back(listingEntry(root, folder, entry));
    const Json parent = folder == "/" ? Json(nullptr) : Json(parentPath(folder));
    return Json{{"platform", "macos"},       {"path", folder},
                {"parent_path", parent},     {"item_count", items.size()},
                {"items", std::move(items)}, {"max_items", maxItems}};
}

Json rootsListing(const SystemRoot& root, std::size_t maxItems) {
    std::set<std::string> added;
    Json items = Json::array();
    for (const FixedRoot& fixed : fixedRoots) {
        const std::string path = normalizedPath(fixed.path);
        if (!fileExists(root.locate(path)) || !added.insert(path).second) continue;
        items.push_back(fixedRootEntry(root, fixed, path));
    }
    for (const DirectoryEntry& volume : visibleVolumes(root)) {
        const std::string path = normalizedPath("/Volumes/" + volume.name);
        if (!added.insert(path).second) continue;
        items.push_back(volumeEntry(root.locate(path), path, volume));
    }
    if (items.size() > maxItems) {
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(maxItems), items.end());
    }
    return Json{{"platform", "macos"},       {"path", ""},
                {"parent_path", nullptr},    {"item_count", items.size()},
                {"items", std::move(items)}, {"max_items", maxItems},
                {"root_kind", "volumes"}};
}

}  // namespace orv
