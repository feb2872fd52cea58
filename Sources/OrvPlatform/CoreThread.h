#pragma once

#include <chrono>
#include <exception>

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "OrvPlatform/Task.h"

namespace orv {

/// The event loop of a process, on which one task runs until it ends or SIGTERM or SIGINT tell the
/// process to end: then the task is cancelled, and cut off when it takes longer than its patience
/// allows.
class CoreThread {
public:
    /// The process's exit status when the task had to be cut off.
    CoreThread(std::chrono::milliseconds patience, int statusWhenCutOff);

    asio::io_context context{1};

    /// The error the task ended with, if any; cancellation is one. To be called once.
    std::exception_ptr run(Task<void> task);

    /// Whether a signal ended the task.
    bool wasInterrupted() const { return isInterrupted; }

private:
    void endWithinPatience();

    std::chrono::milliseconds patience;
    int statusWhenCutOff;
    asio::signal_set signals;
    asio::steady_timer deadline;
    asio::cancellation_signal stop;
    std::exception_ptr outcome;
    bool isInterrupted = false;
};

}  // namespace orv
