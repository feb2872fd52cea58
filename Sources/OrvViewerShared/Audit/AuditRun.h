#pragma once

#include <string>
#include <utility>

#include "OrvPlatform/SystemRoot.h"
#include "OrvPlatform/Task.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvPlatform/WorkerPool.h"
#include "OrvViewerShared/Audit/AuditTools.h"

namespace orv {

/// One collection of facts and what it stands on; its topics share the tools' limit.
struct AuditRun {
    AuditTools tools;
    WorkerPool& workers;
    SystemRoot root;
    asio::any_io_executor executor;
    TaskGroup::FailureHandler onFailure;  // a topic that failed; its values keep their fallbacks
};

/// Topics that are looked into at the same time, each for its own place. The places must stay
/// until join has returned.
class SideBySide {
public:
    explicit SideBySide(const AuditRun& run) : group(run.executor, run.onFailure) {}

    template <typename Value>
    void fill(std::string topic, Value& place, Task<Value> task) {
        group.spawn(std::move(topic), assign(&place, std::move(task)));
    }

    void run(std::string topic, Task<void> task) { group.spawn(std::move(topic), std::move(task)); }

    Task<void> join() { return group.join(); }

private:
    template <typename Value>
    static Task<void> assign(Value* place, Task<Value> task) {
        *place = co_await std::move(task);
    }

    TaskGroup group;
};

}  // namespace orv
