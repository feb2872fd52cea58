#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orv {

/// How a company's name is found in the texts that bundles and tools carry. Each gives nothing
/// when no name is left.

/// Without white space, quotes and brackets at both ends; "(null)", "unknown" in any case and
/// names of 256 characters or more are none.
std::optional<std::string> normalizedCompanyName(std::string_view text);

/// "Acme" of "Copyright © 2010–2024 by Acme. All rights reserved."
std::optional<std::string> companyNameFromCopyright(std::string_view text);

/// "Acme sp. z o.o." of "Developer ID Application: Acme sp. z o.o. (A1B2C3D4E5)".
std::optional<std::string> companyNameFromSigningAuthority(std::string_view authority);

/// The company that is known for a bundle identifier's beginning, whatever its case.
std::optional<std::string> publisherFromBundleIdentifier(std::string_view bundleIdentifier);

/// One value of the metadata tool, trimmed; nothing when it stands for no value.
std::optional<std::string> cleanSpotlightValue(std::string_view value);

/// The values in the answer of "/usr/bin/mdls -raw" for several attributes. They are separated by
/// zero bytes; a value that is a list spans lines, "(", one quoted text a line, ")", and counts
/// once for each of its texts.
std::vector<std::string> spotlightValues(std::string_view answer);

/// The first signing authority in the answer of "/usr/bin/codesign -d --verbose=4".
std::optional<std::string> firstSigningAuthority(std::string_view answer);

/// The company behind a bundle's first signing authority. Apple's own signature says so only of
/// Apple's bundles: it is on everything that comes from its store.
std::optional<std::string> companyOfSignature(std::string_view authority,
                                              std::string_view bundleIdentifier);

}  // namespace orv
