#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/Url.h"
#include "OrvViewerShared/Models.h"

namespace orv {

/// A manifest's package, judged fit to be downloaded and installed as root.
struct ValidatedUpdatePackage {
    Url url;             // HTTPS, of the helpdesk's own host
    std::string sha256;  // 64 lower-case hexadecimal digits
    std::int64_t sizeBytes = 0;
};

inline constexpr std::int64_t largestUpdatePackageBytes = 629'145'600;  // 600 MiB

/// Throws ViewerError::unsupported, whose text reaches people, naming the first thing that is
/// wrong: the hash, then the size, then the URL.
ValidatedUpdatePackage validatedUpdatePackage(const ViewerUpdateManifest& manifest,
                                              const std::string& serverBaseUrl);

/// The package's URL, when the package comes from the helpdesk server itself:
///
/// | package URL             | server base URL         |                                         |
/// |-------------------------|-------------------------|-----------------------------------------|
/// | https, with a host      | https, with a host      | schemes and hosts in any letter case    |
/// | another host            |                         | refused                                 |
/// | without a port          | with or without         | accepted                                |
/// | names a port            | names the same          | accepted; anything else is refused      |
/// | the path ends in ".pkg" |                         | in any letter case; a query may follow  |
Url validatedUpdatePackageUrl(const ViewerUpdateManifest& manifest,
                              const std::string& serverBaseUrl);

}  // namespace orv
