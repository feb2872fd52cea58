#include <stdexcept>
#include <string>

#include "Fuzz/Target.h"
#include "OrvPlatform/Json.h"
#include "OrvViewerShared/ControlProtocol.h"
#include "OrvViewerShared/Models.h"
#include "OrvViewerShared/RemoteChatMessage.h"
#include "OrvViewerShared/Tickets.h"
#include "OrvViewerShared/Update/ViewerUpdateStatus.h"
#include "OrvViewerShared/ViewerError.h"
#include "OrvViewerShared/ViewerSettings.h"
#include "OrvViewerShared/ViewerState.h"

namespace orv::fuzz {

namespace {

/// Calls with what the bytes mean, if they mean anything.
template <typename Use>
void withJson(std::string_view bytes, Use use) {
    try {
        use(parseJson(bytes));
    } catch (const DecodingError&) {
        return;
    }
}

/// A record that could be read is read alike from what it writes.
template <typename Record>
void readAgain(const Json& value) {
    try {
        const Json written = value.get<Record>();
        demand(Json(written.get<Record>()) == written, "a record comes back as it was written");
    } catch (const DecodingError&) {
        return;
    }
}

template <typename Record>
void read(const Json& value) {
    try {
        (void)value.get<Record>();
    } catch (const DecodingError&) {
        return;
    }
}

}  // namespace

void json(std::string_view bytes) {
    withJson(bytes, [bytes](const Json& value) {
        demand(value == Json::parse(bytes), "the library reads the same");
        demand(parseJson(compactJson(value)) == value, "compact JSON keeps the value");
        demand(parseJson(prettyJson(value)) == value, "pretty JSON keeps the value");
    });
    (void)serverErrorDetail(bytes);
}

void records(std::string_view bytes) {
    withJson(bytes, [](const Json& value) {
        readAgain<ViewerState>(value);
        readAgain<ViewerUpdateStatus>(value);
        readAgain<ViewerUpdateRequest>(value);
        readAgain<CustomerSessionResponse>(value);
        read<DeviceRegistrationResponse>(value);
        read<ViewerUpdateManifest>(value);
        read<AgentTicketResponse>(value);
        read<CustomerTicketNotificationPage>(value);
        (void)AgentCommand::from(value);
        auto settings = value.get<ViewerSettings>();
        try {
            settings.validate();
        } catch (const ViewerError&) {
            return;
        }
        const ViewerSettings once = settings;
        settings.validate();
        demand(Json(settings) == Json(once), "settings are valid once and for all");
    });
}

void chatMessage(std::string_view bytes) {
    withJson(bytes, [](const Json& value) { readAgain<RemoteChatMessage>(value); });
}

void controlMessage(std::string_view bytes) {
    withJson(bytes, [](const Json& value) {
        if (value.is_object()) (void)control::interpret(value);
    });
}

}  // namespace orv::fuzz
