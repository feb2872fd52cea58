#include "OrvPlatform/CoreThread.h"

#include <signal.h>
#include <unistd.h>
#include <utility>

#include <boost/asio/bind_cancellation_slot.hpp>
#include <boost/asio/co_spawn.hpp>

namespace orv {

CoreThread::CoreThread(std::chrono::milliseconds allowed, int statusOfCutOff)
    : patience(allowed),
      statusWhenCutOff(statusOfCutOff),
      signals(context, SIGTERM, SIGINT),
      deadline(context) {
}

std::exception_ptr CoreThread::run(Task<void> task) {
    asio::co_spawn(context, std::move(task),
                   asio::bind_cancellation_slot(stop.slot(), [this](std::exception_ptr error) {
                       outcome = error;
                       signals.cancel();
                       deadline.cancel();
                   }));
    signals.async_wait([this](const boost::system::error_code& error, int) {
        if (!error) endWithinPatience();
    });
    context.run();
    return outcome;
}

void CoreThread::endWithinPatience() {
    isInterrupted = true;
    deadline.expires_after(patience);
    deadline.async_wait([this](const boost::system::error_code& error) {
        if (!error) _exit(statusWhenCutOff);
    });
    stop.emit(asio::cancellation_type::terminal);
}

}  // namespace orv
