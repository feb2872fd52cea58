#pragma once

#include <optional>
#include <string>
#include <vector>

#include "OrvPlatform/ConcurrencyLimit.h"
#include "OrvPlatform/Task.h"
#include "OrvViewerShared/Shell.h"

namespace orv {

/// The system's tools as one collection of facts uses them: few at once, so that a weak machine
/// stays usable meanwhile. A tool that fails has no answer.
class AuditTools {
public:
    /// Of an inventory's tools, all topics together.
    static constexpr std::size_t toolsAtOnce = 8;

    explicit AuditTools(Shell& shell) : shell(shell), limit(toolsAtOnce) {}

    /// The trimmed standard output; nothing when the tool failed or printed nothing.
    Task<std::optional<std::string>> answer(std::string executable,
                                            std::vector<std::string> arguments);

    /// The same with the empty text for nothing.
    Task<std::string> text(std::string executable, std::vector<std::string> arguments);

    /// For tools that answer on standard error; the status does not matter.
    Task<std::optional<std::string>> answerOnBothStreams(std::string executable,
                                                         std::vector<std::string> arguments);

private:
    Shell& shell;
    ConcurrencyLimit limit;
};

}  // namespace orv
