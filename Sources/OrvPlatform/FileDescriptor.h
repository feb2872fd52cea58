#pragma once

#include <unistd.h>
#include <utility>

namespace orv {

/// Owns one open file descriptor, or none.
class FileDescriptor {
public:
    FileDescriptor() = default;
    /// Takes over what a system call returned; a negative number is none.
    explicit FileDescriptor(int descriptor) : value(descriptor) {}
    ~FileDescriptor() { reset(); }

    FileDescriptor(FileDescriptor&& other) noexcept : value(std::exchange(other.value, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            value = std::exchange(other.value, -1);
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    bool isOpen() const { return value >= 0; }
    int get() const { return value; }

    /// The caller becomes the owner.
    int release() { return std::exchange(value, -1); }

    void reset() {
        if (value >= 0) ::close(std::exchange(value, -1));
    }

private:
    int value = -1;
};

}  // namespace orv
