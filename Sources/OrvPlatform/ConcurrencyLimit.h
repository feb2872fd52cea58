#pragma once

#include <cstddef>
#include <memory>

#include "OrvPlatform/Task.h"

namespace orv {

/// At most so many at once: whoever comes when all places are taken waits, first come, first
/// served. To be used on the core thread only.
class ConcurrencyLimit {
    struct State;

public:
    /// One place, given back when the slot goes.
    class Slot {
    public:
        explicit Slot(std::shared_ptr<State> takenFrom) : state(std::move(takenFrom)) {}
        Slot(Slot&&) noexcept = default;
        Slot& operator=(Slot&&) = delete;
        ~Slot();

    private:
        std::shared_ptr<State> state;
    };

    explicit ConcurrencyLimit(std::size_t places);

    /// Throws the cancellation error when the task is cancelled while it waits.
    Task<Slot> acquire();

private:
    std::shared_ptr<State> state;
};

}  // namespace orv
