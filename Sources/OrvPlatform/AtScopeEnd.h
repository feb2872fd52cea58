#pragma once

#include <utility>

namespace orv {

/// Calls the function when the scope is left, however it is left. The function does not throw.
template <typename Function>
class AtScopeEnd {
public:
    explicit AtScopeEnd(Function function) : atEnd(std::move(function)) {}
    ~AtScopeEnd() { atEnd(); }
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;

private:
    Function atEnd;
};

}  // namespace orv
