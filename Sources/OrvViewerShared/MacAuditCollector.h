#pragma once

#include <functional>
#include <vector>

#include "OrvPlatform/Clock.h"
#include "OrvPlatform/HostFacts.h"
#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/Volumes.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/AuditCollecting.h"
#include "OrvViewerShared/Shell.h"
#include "OrvViewerShared/ViewerLogger.h"
#include "OrvViewerShared/ViewerSettings.h"

namespace orv {

struct AuditRun;

/// Gathers what the helpdesk knows of this Mac: the whole inventory, and the small body of every
/// heartbeat. Keeps nothing between two calls, so that both may be under way at once.
///
/// The tools of one inventory run side by side, at most eight at once; those of a heartbeat do not
/// wait for them. What blocks or takes long happens on the workers.
class MacAuditCollector final : public AuditCollecting {
public:
    struct Parts {
        const ViewerSettings& settings;
        Shell& shell;
        const HostFacts& hostFacts;
        const Clock& clock;
        WorkerPool& workers;
        const ViewerLogger& logger;
        SystemRoot root;
        asio::any_io_executor executor;
        /// Called on a worker.
        std::function<std::vector<Volume>(const SystemRoot&)> volumes = mountedVolumes;
    };

    explicit MacAuditCollector(Parts parts);

    Task<Json> collect() override;
    Task<Json> heartbeatPayload(ViewerState state) override;
    DeviceFacts deviceFacts() const override;

private:
    AuditRun newRun() const;
    Json inventoryBasis(const DeviceFacts& facts) const;
    Json heartbeatBasis(const DeviceFacts& facts, const ViewerState& state) const;

    Parts parts;
};

}  // namespace orv
