#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// An installed application, by its bundle's information list.
struct ApplicationBundle {
    std::string path = {};  // on the Mac: "/Applications/Notes.app"
    std::string name = {};
    std::string version = {};  // empty when unknown
    std::string bundleIdentifier = {};
    std::string copyright = {};    // "NSHumanReadableCopyright"
    std::string infoString = {};   // "CFBundleGetInfoString"
    std::string installedAt = {};  // the bundle's modification day in local time, as yyyy-MM-dd
};

/// The application bundles in the application folders, sorted by name, case ignored; equal names
/// in the order of the folders. Bundles without a readable information list are left out, and so
/// is the second way to the same bundle. Reads hundreds of files: for a worker.
std::vector<ApplicationBundle> scanApplications(const SystemRoot& root);

/// The facts in an information list; values of a wrong type count as missing.
ApplicationBundle applicationOf(std::string path, const Json& informationList);

}  // namespace orv
