#include "WsparoCompanion/Output.h"

#include <cerrno>
#include <unistd.h>

#include <fmt/format.h>

#include "OrvPlatform/File.h"
#include "OrvPlatform/TerminalInput.h"

namespace orv::companion {

namespace {

constexpr const char* eraseLine = "\r\033[K";

const char* codeOf(Colour colour) {
    switch (colour) {
        case Colour::bold: return "1";
        case Colour::green: return "32";
        case Colour::yellow: return "33";
        case Colour::red: return "31";
        case Colour::faint: return "2";
        case Colour::plain: break;
    }
    return "0";
}

}  // namespace

void Output::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && loss == Loss::isIgnored) return;
        if (written < 0 && errno == EPIPE) throw OutputClosed();
        if (written < 0) throw FileError(errno, "/dev/stdout");
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void Output::line(std::string_view text) {
    const std::string_view erasing = showsProgress ? eraseLine : "";
    showsProgress = false;
    write(fmt::format("{}{}\n", erasing, text));
}

std::string Output::in(Colour colour, std::string_view text) const {
    if (!isColourful || colour == Colour::plain) return std::string(text);
    return fmt::format("\033[{}m{}\033[0m", codeOf(colour), text);
}

void Output::progress(std::string_view text) {
    if (!isTerminal()) return;
    showsProgress = true;
    write(fmt::format("{}{}", eraseLine, text));
}

bool Output::isTerminal() const {
    return orv::isTerminal(descriptor);
}

}  // namespace orv::companion
