#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/Url.h"
#include "OrvViewerShared/SanitizeJson.h"
#include "Support/FakeClock.h"

namespace orv {
namespace {

TEST(SanitizeJsonTest, spellsDatesUrlsAndAbsence) {
    FakeClock clock;
    EXPECT_EQ(sanitizeJson(clock.now()), Json("2026-03-01T09:15:02Z"));
    EXPECT_EQ(sanitizeJson(*parseUrl("https://desk.example/a?b=c")),
              Json("https://desk.example/a?b=c"));
    EXPECT_EQ(sanitizeJson(std::optional<std::string>()), Json(nullptr));
    EXPECT_EQ(sanitizeJson(std::optional<WallTime>(clock.now())), Json("2026-03-01T09:15:02Z"));
    EXPECT_EQ(sanitizeJson(std::optional<std::string>("x")), Json("x"));
    EXPECT_EQ(sanitizeJson(Json{{"a", {1, true, nullptr}}}), (Json{{"a", {1, true, nullptr}}}));
}

}  // namespace
}  // namespace orv
