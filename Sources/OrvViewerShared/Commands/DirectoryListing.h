#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"

namespace orv {

/// The entries of one folder: folders first, each group in the order people expect, at most
/// maxItems of them, each with what can be read of it. Blocks. Throws CommandError 404 when the
/// path is no folder, FileError when it cannot be read. The result has no "collected_at" yet.
Json directoryListing(const SystemRoot& root, const std::string& path, std::size_t maxItems);

/// Whether the path asks for the list of starting places instead of a folder.
bool asksForRoots(const std::string& path);

/// The places where a consultant starts: the well-known folders that exist, then the volumes.
/// Blocks. The result has no "collected_at" yet.
Json rootsListing(const SystemRoot& root, std::size_t maxItems);

}  // namespace orv
