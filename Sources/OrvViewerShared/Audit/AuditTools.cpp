#include "OrvViewerShared/Audit/AuditTools.h"

#include <utility>

namespace orv {

namespace {

std::optional<std::string> unlessEmpty(std::optional<std::string> answer) {
    if (answer && answer->empty()) return std::nullopt;
    return answer;
}

}  // namespace

Task<std::optional<std::string>> AuditTools::answer(std::string executable,
                                                    std::vector<std::string> arguments) {
    const ConcurrencyLimit::Slot slot = co_await limit.acquire();
    std::optional<std::string> output =
        co_await shell.run(std::move(executable), std::move(arguments));
    co_return unlessEmpty(std::move(output));
}

Task<std::string> AuditTools::text(std::string executable, std::vector<std::string> arguments) {
    std::optional<std::string> output =
        co_await answer(std::move(executable), std::move(arguments));
    co_return std::move(output).value_or(std::string());
}

Task<std::optional<std::string>> AuditTools::answerOnBothStreams(
    std::string executable, std::vector<std::string> arguments) {
    const ConcurrencyLimit::Slot slot = co_await limit.acquire();
    std::optional<std::string> output =
        co_await shell.processOutput(std::move(executable), std::move(arguments));
    co_return unlessEmpty(std::move(output));
}

}  // namespace orv
