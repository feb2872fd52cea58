#pragma once

#include <optional>
#include <stdlib.h>
#include <string>
#include <utility>

namespace orv::test {

/// Sets (or, with no value, removes) one environment variable and puts the old state back.
class ScopedEnvironment {
public:
    ScopedEnvironment(std::string variable, std::optional<std::string> value)
        : name(std::move(variable)) {
        if (const char* old = ::getenv(name.c_str())) before = old;
        set(value);
    }
    ~ScopedEnvironment() { set(before); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    void set(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    }

    std::string name;
    std::optional<std::string> before;
};

}  // namespace orv::test
