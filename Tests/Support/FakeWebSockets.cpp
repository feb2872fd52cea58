#include "Support/FakeWebSockets.h"

#include <utility>

namespace orv {

FakeSocket& FakeSocket::says(std::string text) {
    incoming.emplace_back(WebSocketMessage{true, std::move(text)});
    changed.notify();
    return *this;
}

FakeSocket& FakeSocket::saysInBinary(std::string bytes) {
    incoming.emplace_back(WebSocketMessage{false, std::move(bytes)});
    changed.notify();
    return *this;
}

FakeSocket& FakeSocket::closes(std::uint16_t code) {
    incoming.emplace_back(WebSocketClosed{code});
    changed.notify();
    return *this;
}

FakeSocket& FakeSocket::breaks(const UrlError& error) {
    if (isReadingPaused) incoming.clear();
    incoming.emplace_back(error);
    changed.notify();
    return *this;
}

class FakeConnection final : public WebSocketConnection {
public:
    explicit FakeConnection(std::shared_ptr<FakeSocket> otherSide) : socket(std::move(otherSide)) {}

    Task<WebSocketEvent> receive() override {
        const auto kept = socket;
        while (!kept->hasSomethingToReceive())
            co_await kept->changed.wait();
        // A broken connection stays broken.
        if (const auto* error = std::get_if<UrlError>(&kept->incoming.front())) {
            throw UrlError(*error);
        }
        WebSocketEvent event = std::get<WebSocketEvent>(std::move(kept->incoming.front()));
        kept->incoming.pop_front();
        co_return event;
    }

    Task<void> sendText(std::string text) override {
        if (socket->refusesToSend) {
            throw UrlError(UrlErrorCode::networkConnectionLost, "Broken pipe");
        }
        socket->sent.push_back(std::move(text));
        co_return;
    }

    Task<void> close(std::uint16_t code) override {
        if (!socket->closeCode) socket->closeCode = code;
        co_return;
    }

    void pauseReading(bool isPaused) override {
        socket->isReadingPaused = isPaused;
        socket->changed.notify();
    }

    void probe(std::chrono::nanoseconds deadline) override { socket->probes.push_back(deadline); }

private:
    std::shared_ptr<FakeSocket> socket;
};

std::shared_ptr<FakeSocket> FakeWebSockets::thenOpen() {
    auto socket = std::make_shared<FakeSocket>(executor);
    prepared.emplace_back(socket);
    return socket;
}

void FakeWebSockets::thenFail(const UrlError& error) {
    prepared.emplace_back(error);
}

Task<std::unique_ptr<WebSocketConnection>> FakeWebSockets::connect(WebSocketRequest request) {
    requests.push_back(request);
    if (prepared.empty() && failure) prepared.emplace_back(*failure);
    if (prepared.empty()) thenOpen();
    const auto next = std::move(prepared.front());
    prepared.pop_front();
    if (const auto* error = std::get_if<UrlError>(&next)) throw UrlError(*error);
    opened.push_back(std::get<std::shared_ptr<FakeSocket>>(next));
    opened.back()->request = std::move(request);
    co_return std::make_unique<FakeConnection>(opened.back());
}

}  // namespace orv
