#include "WsparoCompanion/CustomerSession.h"

#include "OrvPlatform/File.h"
#include "OrvPlatform/Folder.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

std::string placeOf(const Surroundings& surroundings) {
    if (!surroundings.home) throw surroundings.failure(exitCode::failure, texts::noHome);
    return surroundings.home->locate(CustomerSessionFile::path);
}

}  // namespace

void to_json(Json& out, const CustomerSession& session) {
    out = Json{{"serverBaseUrl", session.serverBaseUrl}, {"cursor", session.cursor}};
    out["session"] = session.session;
}

void from_json(const Json& in, CustomerSession& session) {
    session.serverBaseUrl = requiredText(in, "serverBaseUrl");
    session.cursor = requiredInteger(in, "cursor");
    const auto found = in.find("session");
    if (found == in.end()) throw DecodingError("The key \"session\" is missing.");
    session.session = found->get<CustomerSessionResponse>();
}

CustomerSessionFile::CustomerSessionFile(const Surroundings& surroundings)
    : place(placeOf(surroundings)) {
}

Reading<CustomerSession> CustomerSessionFile::read() const {
    return readRecord<CustomerSession>(place, place);
}

void CustomerSessionFile::write(const CustomerSession& session) const {
    createDirectories(parentPath(place));
    WriteOptions options;
    options.mode = 0600;
    writeFileAtomically(place, prettyJson(session), options);
}

bool CustomerSessionFile::remove() const {
    return removeEntry(place);
}

}  // namespace orv::companion
