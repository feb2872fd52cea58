#pragma once

#include <chrono>
#include <memory>

#include "OrvPlatform/ProcessRunner.h"

namespace orv {

struct ProcessTimings {
    /// Between SIGTERM and SIGKILL.
    std::chrono::nanoseconds terminationGrace = std::chrono::milliseconds(300);
    /// How long outputs may stay open after the program's end, whatever the time-out.
    std::chrono::nanoseconds drainAtLeast = std::chrono::seconds(1);
};

/// Programs of this system. They run side by side, in any number that the system's limits allow;
/// an output is read as it fills, an end is noticed at once.
class SystemProcessRunner final : public ProcessRunner {
public:
    /// The executor is the core thread's; run must be called there. The runner installs a handler
    /// for SIGCHLD, but waits for nobody's children but its own.
    explicit SystemProcessRunner(const asio::any_io_executor& executor,
                                 ProcessTimings timings = {});
    ~SystemProcessRunner() override;

    Task<ProcessResult> run(ProcessRequest request) override;

    /// What the runs have in common.
    struct Common;

private:
    std::shared_ptr<Common> common;
};

}  // namespace orv
