#include "WsparoCompanion/Interruptible.h"

#include <chrono>
#include <exception>
#include <utility>

#include "OrvPlatform/Cancellation.h"

namespace orv::companion {

namespace {

constexpr std::chrono::milliseconds patience{900};

}  // namespace

Interruptible::Interruptible(int statusWhenInterrupted)
    : status(statusWhenInterrupted), core(patience, statusWhenInterrupted) {
}

Task<void> Interruptible::keepStatus(Task<int> task) {
    status = co_await std::move(task);
}

int Interruptible::run(Task<int> task) {
    const std::exception_ptr error = core.run(keepStatus(std::move(task)));
    if (!error) return status;
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        if (!core.wasInterrupted() || !isCancellation(failure)) throw;
    }
    return status;
}

}  // namespace orv::companion
