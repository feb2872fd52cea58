#include "OrvPlatform/SystemProcessRunner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <functional>
#include <string_view>
#include <unistd.h>
#include <utility>

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/system_error.hpp>

#include "OrvPlatform/ChildExitNotices.h"
#include "OrvPlatform/ChildProcess.h"

namespace orv {

struct SystemProcessRunner::Common {
    asio::any_io_executor executor;
    ProcessTimings timings;
    std::shared_ptr<ChildExitNotices> exits;
    /// Every read goes here and on to its sink in one go, so one is enough for all.
    std::array<char, 65536> piece;
};

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;
using Completion = std::function<void(std::exception_ptr, ProcessResult)>;

// An output that never runs dry must let others have their turn.
constexpr int piecesPerTurn = 16;

SteadyTime after(SteadyTime begin, std::chrono::nanoseconds span) {
    return span > SteadyTime::max() - begin ? SteadyTime::max() : begin + span;
}

/// One program from its launch to the end of its output:
///
///     running --time is up, or cancelled--> terminating --grace is over--> killed
///        |                                       |                           |
///        +--------------- the program ends ------+---------------------------+
///                                |
///                            draining --outputs closed, or enough waited--> finished
///
/// A cancelled run, or one whose sink failed, skips the draining. Whoever waits holds it: the
/// timer's wait until it is finished, which keeps the waiting coroutine alive through `complete`.
class ProcessRun : public std::enable_shared_from_this<ProcessRun> {
public:
    ProcessRun(std::shared_ptr<SystemProcessRunner::Common> shared, ProcessRequest wanted)
        : common(std::move(shared)),
          request(std::move(wanted)),
          launchTime(std::chrono::steady_clock::now()),
          deadline(after(launchTime, request.timeout)),
          child(request),
          standardOutput(common->executor),
          standardError(common->executor),
          timer(common->executor) {
        adopt(standardOutput, child.takeStandardOutput());
        adopt(standardError, child.takeStandardError());
    }

    ~ProcessRun() { stopListening(); }
    ProcessRun(const ProcessRun&) = delete;
    ProcessRun& operator=(const ProcessRun&) = delete;

    template <typename Handler>
    void start(Handler handler) {
        const std::weak_ptr<ProcessRun> weak = weak_from_this();
        auto slot = asio::get_associated_cancellation_slot(handler);
        const auto owned = std::make_shared<Handler>(std::move(handler));
        complete = [owned](std::exception_ptr error, ProcessResult result) {
            (*owned)(error, result);
        };
        if (slot.is_connected()) {
            slot.assign([weak, executor = common->executor](asio::cancellation_type) {
                // Not from within the call that cancels.
                asio::post(executor, [weak] {
                    if (const auto self = weak.lock()) self->cancel();
                });
            });
        }
        common->exits->add(child.id(), [this] { noticeEnd(); });
        isListening = true;
        wakeAt(deadline);
        if (standardOutput.is_open()) readWhenFilled(standardOutput, request.onStandardOutput);
        if (standardError.is_open()) readWhenFilled(standardError, request.onStandardError);
    }

private:
    using Stream = asio::posix::stream_descriptor;
    enum class Stage { running, terminating, killed, draining, finished };

    void adopt(Stream& stream, FileDescriptor descriptor) {
        if (!descriptor.isOpen()) return;
        boost::system::error_code error;
        stream.assign(descriptor.get(), error);
        if (error) throw LaunchError(request.executable, error.message());
        descriptor.release();
    }

    void wakeAt(SteadyTime time) {
        timer.expires_at(time);
        timer.async_wait([self = shared_from_this()](boost::system::error_code error) {
            // A wait that was over before the time was changed comes here all the same.
            const bool isTime = std::chrono::steady_clock::now() >= self->timer.expiry();
            if (!error && isTime) self->timeIsUp();
        });
    }

    void timeIsUp() {
        switch (stage) {
            case Stage::running:
                if (noticeEnd()) return;
                timedOut = true;
                return terminate();
            case Stage::terminating:
                stage = Stage::killed;
                wakeAt(SteadyTime::max());
                return tell(SIGKILL);
            case Stage::draining: return finish();
            case Stage::killed:
            case Stage::finished: return;
        }
    }

    void terminate() {
        if (stage != Stage::running) return;
        stage = Stage::terminating;
        wakeAt(after(std::chrono::steady_clock::now(), common->timings.terminationGrace));
        tell(SIGTERM);
    }

    /// When this finds the program ended, no notice comes of it any more.
    void tell(int signal) {
        child.signal(signal);
        noticeEnd();
    }

    void cancel() {
        if (stage == Stage::finished) return;
        isCancelled = true;
        stage == Stage::draining ? finish() : terminate();
    }

    /// True when the program has ended by now.
    bool noticeEnd() {
        if (stage == Stage::draining || stage == Stage::finished) return true;
        const std::optional<ProcessEnd> ended = child.end();
        if (!ended) return false;
        end = *ended;
        stage = Stage::draining;
        stopListening();
        const SteadyTime now = std::chrono::steady_clock::now();
        wakeAt(std::max(deadline, after(now, common->timings.drainAtLeast)));
        finishIfNothingIsLeft();
        return true;
    }

    void stopListening() {
        if (std::exchange(isListening, false)) common->exits->remove(child.id());
    }

    void readWhenFilled(Stream& stream, const OutputSink& sink) {
        stream.async_wait(Stream::wait_read, [self = shared_from_this(), &stream,
                                              &sink](boost::system::error_code error) {
            if (!error && stream.is_open()) self->readWhatIsThere(stream, sink);
        });
    }

    void readWhatIsThere(Stream& stream, const OutputSink& sink) {
        try {
            if (passOn(stream, sink)) return readWhenFilled(stream, sink);
        } catch (...) {
            failure = std::current_exception();
            terminate();
        }
        boost::system::error_code ignored;
        stream.close(ignored);
        finishIfNothingIsLeft();
    }

    /// False at the end of the stream.
    bool passOn(Stream& stream, const OutputSink& sink) {
        std::array<char, 65536>& piece = common->piece;
        for (int turn = 0; turn < piecesPerTurn; ++turn) {
            const ssize_t size = ::read(stream.native_handle(), piece.data(), piece.size());
            if (size == 0) return false;
            if (size < 0) return errno == EAGAIN || errno == EINTR;
            sink(std::string_view(piece.data(), static_cast<std::size_t>(size)));
            if (static_cast<std::size_t>(size) < piece.size()) return true;
        }
        return true;
    }

    void finishIfNothingIsLeft() {
        if (stage != Stage::draining) return;
        const bool wantsNoOutput = isCancelled || failure != nullptr;
        if (wantsNoOutput || (!standardOutput.is_open() && !standardError.is_open())) finish();
    }

    void finish() {
        stage = Stage::finished;
        timer.cancel();
        boost::system::error_code ignored;
        standardOutput.close(ignored);
        standardError.close(ignored);

        ProcessResult result{end, timedOut, std::chrono::steady_clock::now() - launchTime};
        if (isCancelled && failure == nullptr) {
            failure = std::make_exception_ptr(
                boost::system::system_error(asio::error::operation_aborted));
        }
        asio::post(common->executor, [done = std::exchange(complete, nullptr), error = failure,
                                      result] { done(error, result); });
    }

    std::shared_ptr<SystemProcessRunner::Common> common;
    ProcessRequest request;
    SteadyTime launchTime;
    SteadyTime deadline;
    ChildProcess child;
    Stream standardOutput;
    Stream standardError;
    asio::steady_timer timer;
    Completion complete;
    bool isListening = false;
    Stage stage = Stage::running;
    ProcessEnd end;
    bool timedOut = false;
    bool isCancelled = false;
    std::exception_ptr failure;
};

}  // namespace

SystemProcessRunner::SystemProcessRunner(const asio::any_io_executor& executor,
                                         ProcessTimings timings)
    : common(std::make_shared<Common>()) {
    common->executor = executor;
    common->timings = timings;
    common->exits = std::make_shared<ChildExitNotices>(executor);
}

SystemProcessRunner::~SystemProcessRunner() = default;

Task<ProcessResult> SystemProcessRunner::run(ProcessRequest request) {
    auto started = std::make_shared<ProcessRun>(common, std::move(request));
    auto initiate = [](auto handler, std::shared_ptr<ProcessRun> given) {
        given->start(std::move(handler));
    };
    // Handed over, not shared: the run holds this coroutine, which must not hold the run.
    co_return co_await asio::async_initiate<const asio::use_awaitable_t<>,
                                            void(std::exception_ptr, ProcessResult)>(
        initiate, asio::use_awaitable, std::move(started));
}

}  // namespace orv
