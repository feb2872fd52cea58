#pragma once

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/ViewerError.h"
#include "Support/FakeClock.h"
#include "Support/FakeHttpClient.h"
#include "Support/TestLoop.h"

namespace orv {

class MemoryTokenStore final : public DeviceTokenStoring {
public:
    std::optional<std::string> load() const override { return token; }
    void save(const std::string& value) override {
        if (!canSave) throw FileError(ENOSPC, "/state");
        token = value;
    }
    void clear() override { token.reset(); }

    std::optional<std::string> token;
    bool canSave = true;
};

/// The client of the helpdesk with a server, a token store and a clock that a test plays.
class ApiClientFixture : public testing::Test {
protected:
    ApiClientFixture() {
        settings.serverBaseUrl = "https://desk.example";
        settings.viewerToken = "viewer";
    }

    OrvDeskApiClient client() { return OrvDeskApiClient({settings, http, tokens, clock}); }

    void heartbeat() { loop.run(client().sendHeartbeat(Json::object())); }

    ViewerError errorOfHeartbeat() {
        try {
            heartbeat();
        } catch (const ViewerError& error) {
            return error;
        }
        throw std::logic_error("The heartbeat succeeded.");
    }

    ViewerSettings settings;
    FakeHttpClient http;
    MemoryTokenStore tokens;
    FakeClock clock;
    TestLoop loop{clock};
    const std::string heartbeatUrl = "https://desk.example/api/agent/devices/heartbeat";
};

}  // namespace orv
