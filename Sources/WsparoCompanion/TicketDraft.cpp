#include "WsparoCompanion/TicketDraft.h"

#include <array>
#include <filesystem>
#include <system_error>

#include "OrvPlatform/File.h"
#include "OrvPlatform/Text.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Texts.h"

namespace orv::companion {

namespace {

struct ContentType {
    std::string_view ending;
    const char* type;
};

constexpr std::array<ContentType, 17> contentTypes{{
    {".csv", "text/csv"},
    {".docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {".gif", "image/gif"},
    {".heic", "image/heic"},
    {".html", "text/html"},
    {".jpeg", "image/jpeg"},
    {".jpg", "image/jpeg"},
    {".json", "application/json"},
    {".log", "text/plain"},
    {".mov", "video/quicktime"},
    {".mp4", "video/mp4"},
    {".pdf", "application/pdf"},
    {".png", "image/png"},
    {".rtf", "application/rtf"},
    {".txt", "text/plain"},
    {".xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {".zip", "application/zip"},
}};

}  // namespace

std::string htmlOf(std::string_view plainText) {
    std::string html = "<p>";
    for (const std::string_view line : linesOf(plainText)) {
        if (html.size() > 3) html += "<br>";
        for (const char c : line) {
            switch (c) {
                case '&': html += "&amp;"; break;
                case '<': html += "&lt;"; break;
                case '>': html += "&gt;"; break;
                case '"': html += "&quot;"; break;
                default: html += c;
            }
        }
    }
    return html + "</p>";
}

std::string contentTypeOf(std::string_view filename) {
    const std::string name = lowercased(filename);
    for (const ContentType& known : contentTypes) {
        if (name.ends_with(known.ending)) return known.type;
    }
    return "application/octet-stream";
}

bool looksLikeEmail(std::string_view text) {
    const std::size_t at = text.find('@');
    return at != std::string_view::npos && at > 0 && at + 1 < text.size() &&
           text.find('@', at + 1) == std::string_view::npos &&
           text.find_first_of(" \t\r\n,;<>") == std::string_view::npos;
}

AgentTicketAttachmentDraft attachmentFrom(const std::string& path,
                                          const Surroundings& surroundings) {
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(path, unknown);
    if (!unknown && size > attachmentLimitBytes) {
        throw surroundings.failure(exitCode::failure, texts::attachmentTooLarge, path,
                                   attachmentLimitBytes >> 20);
    }
    const std::string name = replacingInvalidUtf8(lastPathComponent(path));
    return {name, contentTypeOf(name), readFile(path, attachmentLimitBytes), std::nullopt};
}

}  // namespace orv::companion
