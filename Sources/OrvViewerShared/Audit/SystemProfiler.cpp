#include "OrvViewerShared/Audit/SystemProfiler.h"

#include <utility>

namespace orv {

namespace {

Json parseAnswer(const std::string& answer, const WantsMoreItems& wantsMore) {
    try {
        Json parsed = parseJson(answer, wantsMore);
        return parsed.is_object() ? parsed : Json(nullptr);
    } catch (const DecodingError&) {
        return nullptr;
    }
}

}  // namespace

Task<Json> systemProfilerJson(AuditRun& run, std::vector<std::string> dataTypes,
                              WantsMoreItems wantsMore) {
    dataTypes.emplace_back("-json");
    std::optional<std::string> answer =
        co_await run.tools.answer("/usr/sbin/system_profiler", std::move(dataTypes));
    if (!answer) co_return Json(nullptr);
    // An answer of some megabytes takes too long for the core thread.
    auto parse = [text = std::move(*answer), wanted = std::move(wantsMore)] {
        return parseAnswer(text, wanted);
    };
    Json parsed = co_await run.workers.run(std::move(parse));
    co_return parsed;
}

}  // namespace orv
