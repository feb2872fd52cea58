#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace orv::companion {

/// Whoever read our output has gone: no failure, but there is nothing more to say.
class OutputClosed : public std::exception {
public:
    const char* what() const noexcept override { return "The output was closed"; }
};

enum class Colour { plain, bold, green, yellow, red, faint };

/// One of the process's outputs. What is written is out when the call returns.
class Output {
public:
    /// What becomes of text that cannot be written: of results nothing may be lost unnoticed, and
    /// of complaints there is nowhere to complain.
    enum class Loss { isError, isIgnored };

    /// Colours belong on terminals only.
    Output(int descriptor, bool isColourful, Loss loss)
        : descriptor(descriptor), isColourful(isColourful), loss(loss) {}

    /// Throws OutputClosed, or FileError when it cannot be written (a full disk), unless losses are
    /// ignored.
    void write(std::string_view bytes);
    void line(std::string_view text);

    /// The text in a colour, where this output has any.
    std::string in(Colour colour, std::string_view text) const;

    /// On a terminal, text that the next progress or line takes the place of.
    void progress(std::string_view text);

    bool isTerminal() const;

private:
    int descriptor;
    bool isColourful;
    Loss loss;
    bool showsProgress = false;
};

}  // namespace orv::companion
