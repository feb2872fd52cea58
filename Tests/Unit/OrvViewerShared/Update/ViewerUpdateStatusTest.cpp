#include <gtest/gtest.h>

#include "OrvPlatform/Iso8601.h"
#include "OrvViewerShared/Update/ViewerUpdateStatus.h"

namespace orv {
namespace {

using namespace std::chrono_literals;

const WallTime now = *parseIso8601("2026-03-01T09:15:02Z");

ViewerUpdateStatus aged(const std::string& phase, std::chrono::seconds age) {
    return {phase, "", "", std::nullopt, now - age, std::nullopt};
}

std::string decodingFailure(const std::string& json) {
    try {
        parseJson(json).get<ViewerUpdateStatus>();
        return "";
    } catch (const DecodingError& error) {
        return error.what();
    }
}

TEST(ViewerUpdateStatusTest, isStaleOnceItsAllowanceIsExceeded) {
    for (const auto& [phase, allowance] : {std::pair{"queued", 180s},
                                           {"checking", 300s},
                                           {"downloading", 1200s},
                                           {"installing", 1200s}}) {
        EXPECT_FALSE(isStale(aged(phase, allowance), now)) << phase;
        EXPECT_TRUE(isStale(aged(phase, allowance + 1s), now)) << phase;
        EXPECT_FALSE(isStale(aged(phase, -allowance - 1s), now)) << phase;
    }
}

TEST(ViewerUpdateStatusTest, finalAndUnknownPhasesAreNeverStaleAndNeverRunning) {
    for (const char* phase : {"installed", "failed", "no_update", "anything", ""}) {
        EXPECT_FALSE(isStale(aged(phase, 1'000'000s), now)) << phase;
        EXPECT_FALSE(isRunning(aged(phase, 0s), now)) << phase;
    }
}

TEST(ViewerUpdateStatusTest, isRunningFromTheCheckOnUntilStale) {
    EXPECT_FALSE(isRunning(aged("queued", 0s), now));
    for (const char* phase : {"checking", "downloading", "installing"}) {
        EXPECT_TRUE(isRunning(aged(phase, 300s), now)) << phase;
        EXPECT_FALSE(isRunning(aged(phase, 1201s), now)) << phase;
    }
}

TEST(ViewerUpdateStatusTest, leavesAbsentFieldsOut) {
    ViewerUpdateStatus status{"checking", "Sprawdzam", "0.2.55", std::nullopt, now, std::nullopt};
    EXPECT_EQ(Json(status), parseJson(R"({"phase": "checking", "message": "Sprawdzam",
                            "currentVersion": "0.2.55", "updatedAt": "2026-03-01T09:15:02Z"})"));
    status.availableVersion = "0.3.0";
    status.logPath = "/log";
    EXPECT_EQ(Json(status).at("availableVersion"), "0.3.0");
    EXPECT_EQ(Json(status).at("logPath"), "/log");
    EXPECT_EQ(Json(status).get<ViewerUpdateStatus>(), status);
}

TEST(ViewerUpdateStatusTest, everyRequiredFieldMustBeThereAndOfItsType) {
    EXPECT_EQ(decodingFailure("[]"), "A JSON object was expected.");
    const Json whole = parseJson(R"({"phase": "failed", "message": "m", "currentVersion": "1",
        "updatedAt": "2026-03-01T09:15:02Z", "availableVersion": null, "unknown": 1})");
    EXPECT_EQ(decodingFailure(whole.dump()), "");
    for (const char* key : {"phase", "message", "currentVersion", "updatedAt"}) {
        Json missing = whole;
        missing.erase(key);
        EXPECT_NE(decodingFailure(missing.dump()).find(key), std::string::npos) << key;
    }
    for (const char* key : {"phase", "availableVersion", "logPath", "updatedAt"}) {
        Json mistyped = whole;
        mistyped[key] = 5;
        EXPECT_NE(decodingFailure(mistyped.dump()).find(key), std::string::npos) << key;
    }
    Json undated = whole;
    undated["updatedAt"] = "yesterday";
    EXPECT_EQ(decodingFailure(undated.dump()), "The value of \"updatedAt\" is not a date.");
}

TEST(ViewerUpdateRequestTest, everyFieldIsRequired) {
    const Json whole = parseJson(R"({"id": "7C1D", "requestedAt": "2026-03-01T09:15:02Z",
                                     "currentVersion": "0.2.54"})");
    const auto request = whole.get<ViewerUpdateRequest>();
    EXPECT_EQ(request, (ViewerUpdateRequest{"7C1D", now, "0.2.54"}));
    EXPECT_EQ(Json(request), whole);
    for (const char* key : {"id", "requestedAt", "currentVersion"}) {
        Json missing = whole;
        missing.erase(key);
        EXPECT_THROW(missing.get<ViewerUpdateRequest>(), DecodingError) << key;
    }
}

}  // namespace
}  // namespace orv
