#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "OrvViewerShared/Tickets.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

inline constexpr std::uint64_t attachmentLimitBytes = 25 << 20;

/// Plain text as HTML that looks the same: what means something in HTML is escaped, lines stay
/// lines.
std::string htmlOf(std::string_view plainText);

/// By the ending of the name; "application/octet-stream" for one that is not known.
std::string contentTypeOf(std::string_view filename);

/// The rough shape only: the server knows better.
bool looksLikeEmail(std::string_view text);

/// The file as an attachment under its own name. Throws CommandFailure for one over the limit,
/// FileError for one that cannot be read.
AgentTicketAttachmentDraft attachmentFrom(const std::string& path,
                                          const Surroundings& surroundings);

}  // namespace orv::companion
