#pragma once

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "OrvPlatform/File.h"
#include "OrvViewerShared/AuditCollecting.h"
#include "OrvViewerShared/DeviceRegistration.h"
#include "OrvViewerShared/DeviceTokenStore.h"
#include "OrvViewerShared/OrvDeskApiClient.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerState.h"
#include "Support/FakeClock.h"
#include "Support/FakeHttpClient.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestLoop.h"

namespace orv {

/// An inventory of two facts.
class FakeCollector final : public AuditCollecting {
public:
    Task<Json> collect() override {
        ++collections;
        co_return inventory;
    }
    Task<Json> heartbeatPayload(ViewerState state) override {
        heartbeatState = state;
        co_return Json{{"device_uid", facts.deviceUid}};
    }
    DeviceFacts deviceFacts() const override { return facts; }

    Json inventory = Json{{"device_uid", "mac-collected"}, {"hostname", "mac.local"}};
    DeviceFacts facts{"mac-collected", "mac.local", std::nullopt};
    ViewerState heartbeatState;
    int collections = 0;
};

/// The agent's files in a temporary root, its registration and API client, and a server of a few
/// lines; time is driven.
class AgentFixture : public testing::Test {
protected:
    AgentFixture() {
        settings.serverBaseUrl = "https://desk.example";
        settings.viewerToken = "viewer";
    }

    /// Built at the first use, after the test prepared the state file.
    DeviceRegistration& registration() {
        if (!built)
            built.emplace(DeviceRegistration::Parts{collector, api(), stateFile, logger, clock});
        return *built;
    }

    OrvDeskApiClient& api() {
        if (!client) client.emplace(OrvDeskApiClient::Parts{settings, http, tokenStore, clock});
        return *client;
    }

    std::string log() const {
        return fileExists(logger.logFile()) ? readFile(logger.logFile(), 10'000'000) : "";
    }

    TemporaryDirectory folder;
    SystemRoot root{folder.path()};
    FakeClock clock;
    TestLoop loop{clock};
    ViewerSettings settings;
    ViewerLogger logger{root, clock};
    ViewerStateFile stateFile{root, logger};
    DeviceTokenStore tokenStore{stateFile};
    FakeHttpClient http;
    FakeCollector collector;

private:
    std::optional<OrvDeskApiClient> client;
    std::optional<DeviceRegistration> built;
};

}  // namespace orv
