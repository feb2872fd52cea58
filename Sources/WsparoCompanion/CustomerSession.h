#pragma once

#include <cstdint>
#include <string>

#include "OrvPlatform/Json.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvViewerShared/Tickets.h"
#include "WsparoCompanion/RecordFile.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// Who is logged in, and how far they have read.
struct CustomerSession {
    std::string serverBaseUrl;  // where the token may be sent
    CustomerSessionResponse session;
    std::int64_t cursor = 0;  // the last message that was shown

    bool operator==(const CustomerSession&) const = default;
};
void to_json(Json& out, const CustomerSession& session);
/// Throws DecodingError naming the key that is wrong.
void from_json(const Json& in, CustomerSession& session);

/// The session in the user's own file, which nobody else can read.
class CustomerSessionFile {
public:
    static constexpr const char* path =
        "/Library/Application Support/Wsparo Brenvox/session.json";  // below the home folder

    /// Throws CommandFailure when there is no home folder.
    explicit CustomerSessionFile(const Surroundings& surroundings);

    Reading<CustomerSession> read() const;

    /// Mode 0600. Throws FileError.
    void write(const CustomerSession& session) const;

    /// Whether nobody is logged in any more.
    bool remove() const;

    const std::string& location() const { return place; }

private:
    std::string place;
};

}  // namespace orv::companion
