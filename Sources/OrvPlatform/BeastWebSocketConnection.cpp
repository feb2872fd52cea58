#include "OrvPlatform/BeastWebSocketConnection.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <optional>
#include <sys/socket.h>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/deferred.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/experimental/parallel_group.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <fmt/format.h>

#include "OrvPlatform/AsyncEvent.h"
#include "OrvPlatform/NetworkErrors.h"
#include "OrvPlatform/TaskGroup.h"
#include "OrvPlatform/TlsWebSocketStream.h"

namespace orv {

namespace {

namespace websocket = boost::beast::websocket;
using boost::system::error_code;

constexpr std::size_t mostWaitingMessages = 64;
/// A timer that is this late was not late: the machine slept.
constexpr std::chrono::seconds longestDelay{10};

struct OutgoingFrame {
    enum class Kind { text, ping };
    Kind kind;
    std::string data;
    bool isSent = false;
};

using OutgoingFramePointer = std::shared_ptr<OutgoingFrame>;

std::string wholeSeconds(std::chrono::nanoseconds duration) {
    return fmt::format("{} s", std::chrono::duration_cast<std::chrono::seconds>(duration).count());
}

/// What broke a socket that has not been asked to read or write since.
error_code pendingError(asio::ip::tcp::socket& socket) {
    int number = 0;
    socklen_t size = sizeof number;
    ::getsockopt(socket.native_handle(), SOL_SOCKET, SO_ERROR, &number, &size);
    if (number == 0) return asio::error::eof;
    return {number, boost::system::system_category()};
}

UrlError connectionClosed() {
    return UrlError(UrlErrorCode::networkConnectionLost, "The connection is closed");
}

}  // namespace

struct BeastWebSocketConnection::State : std::enable_shared_from_this<State> {
    State(std::unique_ptr<TlsWebSocketStream> openStream, Clock& drivingClock,
          WebSocketTimes limits)
        : stream(std::move(openStream)),
          clock(drivingClock),
          times(limits),
          changed(stream->get_executor()) {
        facts.lastArrival = facts.lastPing = clock.monotonicNow();
    }

    std::unique_ptr<TlsWebSocketStream> stream;
    Clock& clock;
    WebSocketTimes times;

    std::deque<WebSocketEvent> received;
    std::deque<OutgoingFramePointer> outgoing;
    /// Why nothing more is sent or read; the first reason stays.
    std::optional<UrlError> ending;
    bool isReadingOver = false;
    bool isToldToPause = false;
    bool isEndLimited = false;
    KeepAliveFacts facts;
    std::uint64_t lastProbe = 0;
    std::uint64_t lastAnsweredProbe = 0;
    AsyncEvent changed;  // any of the above
    std::optional<TaskGroup> tasks;

    void start();
    void end(UrlError reason);
    void fail(UrlError reason);
    void limitTheEnd();
    void controlFrameArrived(websocket::frame_type kind, std::string_view payload);
    bool hasRoom() const { return !isToldToPause && received.size() < mostWaitingMessages; }
    void somethingArrived() { facts.lastArrival = clock.monotonicNow(); }
    void machineSlept();
    void probe(std::chrono::nanoseconds deadline);
    OutgoingFramePointer queue(OutgoingFrame::Kind kind, std::string data);

    static Task<WebSocketEvent> receive(std::shared_ptr<State> state);
    static Task<void> sendText(std::shared_ptr<State> state, std::string text);
    static Task<void> close(std::shared_ptr<State> state, std::uint16_t code);

    static Task<void> readAll(std::shared_ptr<State> state);
    static Task<std::optional<error_code>> readMessage(std::shared_ptr<State> state);
    static Task<void> waitForRoom(std::shared_ptr<State> state);
    static Task<void> changeOrDeath(std::shared_ptr<State> state);
    static Task<void> writeAll(std::shared_ptr<State> state);
    static Task<error_code> write(std::shared_ptr<State> state, OutgoingFramePointer frame);
    static Task<void> keepAlive(std::shared_ptr<State> state);
    static Task<void> expectAnswer(std::shared_ptr<State> state, std::uint64_t probe,
                                   std::chrono::nanoseconds deadline);
    static Task<void> sendClose(std::shared_ptr<State> state, std::uint16_t code);
    static Task<void> endForcibly(std::shared_ptr<State> state);
};

void BeastWebSocketConnection::State::start() {
    stream->control_callback([this](websocket::frame_type kind, boost::beast::string_view payload) {
        controlFrameArrived(kind, payload);
    });
    stream->next_layer().whenEnding = [this] { limitTheEnd(); };
    auto whenTaskFails = [weak = weak_from_this()](const std::string&,
                                                   const std::exception& error) {
        if (const auto kept = weak.lock())
            kept->fail(UrlError(UrlErrorCode::unknown, error.what()));
    };
    tasks.emplace(stream->get_executor(), std::move(whenTaskFails));
    tasks->spawn("WebSocket reader", readAll(shared_from_this()));
    tasks->spawn("WebSocket writer", writeAll(shared_from_this()));
    tasks->spawn("WebSocket keep-alive", keepAlive(shared_from_this()));
}

/// Nothing more is asked of the connection; what has arrived can still be received.
void BeastWebSocketConnection::State::end(UrlError reason) {
    if (!ending) ending = std::move(reason);
    changed.notify();
}

void BeastWebSocketConnection::State::fail(UrlError reason) {
    end(std::move(reason));
    stream->next_layer().closeSocket();
}

void BeastWebSocketConnection::State::limitTheEnd() {
    if (!std::exchange(isEndLimited, true)) {
        tasks->spawn("WebSocket end", endForcibly(shared_from_this()));
    }
}

void BeastWebSocketConnection::State::controlFrameArrived(websocket::frame_type kind,
                                                          std::string_view payload) {
    somethingArrived();
    if (kind == websocket::frame_type::pong) {
        std::uint64_t probe = 0;
        std::from_chars(payload.data(), payload.data() + payload.size(), probe);
        lastAnsweredProbe = std::max(lastAnsweredProbe, probe);
    }
    if (kind == websocket::frame_type::close && !ending) {
        const std::uint16_t code = stream->reason().code;
        received.emplace_back(code == websocket::close_code::none ? WebSocketClosed{}
                                                                  : WebSocketClosed{code});
        end(connectionClosed());
    }
}

OutgoingFramePointer BeastWebSocketConnection::State::queue(OutgoingFrame::Kind kind,
                                                            std::string data) {
    auto frame = std::make_shared<OutgoingFrame>(OutgoingFrame{kind, std::move(data)});
    outgoing.push_back(frame);
    changed.notify();
    return frame;
}

Task<void> BeastWebSocketConnection::State::readAll(std::shared_ptr<State> state) {
    for (;;) {
        const std::optional<error_code> failure = co_await readMessage(state);
        if (failure) {
            if (!state->ending) state->fail(webSocketTransferError(*failure));
            break;
        }
        co_await waitForRoom(state);
    }
    state->isReadingOver = true;
    state->changed.notify();
}

/// Puts one message into the queue; returns why there is none.
Task<std::optional<error_code>> BeastWebSocketConnection::State::readMessage(
    std::shared_ptr<State> state) {
    TlsWebSocketStream& stream = *state->stream;
    std::string data;
    auto buffer = asio::dynamic_buffer(data);
    do {
        error_code failure;
        co_await stream.async_read_some(buffer, 0,
                                        asio::redirect_error(asio::use_awaitable, failure));
        if (failure) co_return failure;
        state->somethingArrived();
    } while (!stream.is_message_done());
    if (!state->ending) {
        state->received.emplace_back(WebSocketMessage{stream.got_text(), std::move(data)});
        state->changed.notify();
    }
    co_return std::nullopt;
}

Task<void> BeastWebSocketConnection::State::waitForRoom(std::shared_ptr<State> state) {
    if (state->hasRoom()) co_return;
    state->facts.isReadingPaused = true;
    while (!state->hasRoom() && !state->ending)
        co_await changeOrDeath(state);
    state->facts.isReadingPaused = false;
    state->somethingArrived();
}

/// Without a read under way nothing else would tell that the connection broke.
Task<void> BeastWebSocketConnection::State::changeOrDeath(std::shared_ptr<State> state) {
    auto& socket = state->stream->next_layer().next_layer();
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    auto race = asio::experimental::make_parallel_group(
        socket.async_wait(asio::socket_base::wait_error, asio::deferred),
        asio::co_spawn(executor, state->changed.wait(), asio::deferred));
    auto [order, waitFailure, changeFailure] =
        co_await race.async_wait(asio::experimental::wait_for_one(), asio::use_awaitable);
    if (order[0] == 0 && !waitFailure && !state->ending) {
        state->fail(webSocketTransferError(pendingError(socket)));
    }
}

Task<void> BeastWebSocketConnection::State::writeAll(std::shared_ptr<State> state) {
    for (;;) {
        while (state->outgoing.empty() && !state->ending)
            co_await state->changed.wait();
        if (state->ending) co_return;
        const OutgoingFramePointer frame = std::move(state->outgoing.front());
        state->outgoing.pop_front();
        state->facts.writingSince = state->clock.monotonicNow();
        const error_code failure = co_await write(state, frame);
        state->facts.writingSince.reset();
        if (failure) {
            if (!state->ending) state->fail(webSocketTransferError(failure));
            co_return;
        }
        frame->isSent = true;
        state->changed.notify();
    }
}

Task<error_code> BeastWebSocketConnection::State::write(std::shared_ptr<State> state,
                                                        OutgoingFramePointer frame) {
    TlsWebSocketStream& stream = *state->stream;
    error_code failure;
    if (frame->kind == OutgoingFrame::Kind::ping) {
        const websocket::ping_data payload(frame->data.c_str());
        co_await stream.async_ping(payload, asio::redirect_error(asio::use_awaitable, failure));
    } else {
        const asio::const_buffer data = asio::buffer(frame->data);
        co_await stream.async_write(data, asio::redirect_error(asio::use_awaitable, failure));
    }
    co_return failure;
}

Task<void> BeastWebSocketConnection::State::keepAlive(std::shared_ptr<State> state) {
    using Action = KeepAliveStep::Action;
    const std::string patience = wholeSeconds(state->times.keepAlive.deadAfter);
    while (!state->ending) {
        const MonotonicTime now = state->clock.monotonicNow();
        const KeepAliveStep step = nextKeepAliveStep(state->facts, state->times.keepAlive, now);
        if (step.action == Action::giveUpSilence) {
            state->fail(UrlError(UrlErrorCode::timedOut,
                                 "Nothing arrived from the server for " + patience));
            co_return;
        }
        if (step.action == Action::giveUpWriting) {
            state->fail(
                UrlError(UrlErrorCode::timedOut, "The server took nothing for " + patience));
            co_return;
        }
        if (step.action == Action::ping) {
            state->facts.lastPing = now;
            state->queue(OutgoingFrame::Kind::ping, "");
        }
        co_await state->clock.sleepFor(step.waitAfterwards);
        const MonotonicTime dueAt = now + step.waitAfterwards;
        if (state->clock.monotonicNow() > dueAt + longestDelay) state->machineSlept();
    }
}

/// Nothing could arrive meanwhile, so the silence means nothing; a ping tells.
void BeastWebSocketConnection::State::machineSlept() {
    const MonotonicTime now = clock.monotonicNow();
    facts.lastArrival = facts.lastPing = now;
    if (facts.writingSince) facts.writingSince = now;
    probe(times.answerAfterSleepWithin);
}

void BeastWebSocketConnection::State::probe(std::chrono::nanoseconds deadline) {
    if (ending) return;
    const std::uint64_t number = ++lastProbe;
    queue(OutgoingFrame::Kind::ping, std::to_string(number));
    tasks->spawn("WebSocket probe", expectAnswer(shared_from_this(), number, deadline));
}

Task<void> BeastWebSocketConnection::State::expectAnswer(std::shared_ptr<State> state,
                                                         std::uint64_t probe,
                                                         std::chrono::nanoseconds deadline) {
    co_await state->clock.sleepFor(deadline);
    const bool canHear = !state->ending && !state->facts.isReadingPaused;
    if (canHear && state->lastAnsweredProbe < probe) {
        state->fail(UrlError(UrlErrorCode::timedOut,
                             "The server did not answer a ping within " + wholeSeconds(deadline)));
    }
}

Task<void> BeastWebSocketConnection::State::sendClose(std::shared_ptr<State> state,
                                                      std::uint16_t code) {
    error_code ignored;  // the connection is over either way
    const websocket::close_reason reason(code);
    co_await state->stream->async_close(reason, asio::redirect_error(asio::use_awaitable, ignored));
    state->stream->next_layer().closeSocket();
}

Task<void> BeastWebSocketConnection::State::endForcibly(std::shared_ptr<State> state) {
    co_await state->clock.sleepFor(state->times.closeWithin);
    state->stream->next_layer().closeSocket();
}

BeastWebSocketConnection::BeastWebSocketConnection(std::unique_ptr<TlsWebSocketStream> stream,
                                                   Clock& clock, WebSocketTimes times)
    : state(std::make_shared<State>(std::move(stream), clock, times)) {
    state->start();
}

BeastWebSocketConnection::~BeastWebSocketConnection() {
    state->fail(connectionClosed());
    state->tasks->cancel();
}

// A coroutine begins when it is first awaited, which may be after the connection has gone: what
// these three run owns the state and not the connection.

Task<WebSocketEvent> BeastWebSocketConnection::receive() {
    return State::receive(state);
}

Task<void> BeastWebSocketConnection::sendText(std::string text) {
    return State::sendText(state, std::move(text));
}

Task<void> BeastWebSocketConnection::close(std::uint16_t code) {
    return State::close(state, code);
}

Task<WebSocketEvent> BeastWebSocketConnection::State::receive(std::shared_ptr<State> state) {
    while (state->received.empty()) {
        if (state->ending) throw UrlError(*state->ending);
        co_await state->changed.wait();
    }
    WebSocketEvent event = std::move(state->received.front());
    state->received.pop_front();
    state->changed.notify();
    co_return event;
}

Task<void> BeastWebSocketConnection::State::sendText(std::shared_ptr<State> state,
                                                     std::string text) {
    if (state->ending) throw UrlError(*state->ending);
    const auto frame = state->queue(OutgoingFrame::Kind::text, std::move(text));
    while (!frame->isSent) {
        if (state->ending) throw UrlError(*state->ending);
        co_await state->changed.wait();
    }
}

Task<void> BeastWebSocketConnection::State::close(std::shared_ptr<State> state,
                                                  std::uint16_t code) {
    if (!state->ending) {
        state->end(connectionClosed());
        state->tasks->spawn("WebSocket close", sendClose(state, code));
    }
    state->limitTheEnd();
    while (!state->isReadingOver)
        co_await state->changed.wait();
    state->fail(connectionClosed());
    state->tasks->cancel();
}

void BeastWebSocketConnection::pauseReading(bool isPaused) {
    if (std::exchange(state->isToldToPause, isPaused) != isPaused) state->changed.notify();
}

void BeastWebSocketConnection::probe(std::chrono::nanoseconds deadline) {
    state->probe(deadline);
}

}  // namespace orv
