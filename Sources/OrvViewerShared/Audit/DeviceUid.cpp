#include "OrvViewerShared/Audit/DeviceUid.h"

#include <array>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <openssl/evp.h>

#include "OrvPlatform/Text.h"

namespace orv {

namespace {

std::string sha256Hex(std::string_view bytes, std::size_t digits) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) !=
        1) {
        throw std::runtime_error("SHA-256 is not available.");
    }
    std::string hex;
    for (unsigned i = 0; i < length && hex.size() < digits; ++i) {
        hex += fmt::format("{:02x}", digest[i]);
    }
    return hex;
}

}  // namespace

std::string buildDeviceUid(const std::string& hostname, const std::optional<std::string>& serial,
                           const std::optional<std::string>& platformUuid) {
    const std::string uuid = lowercased(platformUuid.value_or(""));
    const std::string serialNumber = serial.value_or("");
    const bool isHardwareKnown = !uuid.empty() || !serialNumber.empty();
    return "mac-" + sha256Hex(isHardwareKnown ? uuid + "\n" + serialNumber : hostname, 32);
}

}  // namespace orv
