#pragma once

#include <unistd.h>

#include <utility>

namespace zobi::platform::bluez {

/// Owns an open descriptor, or none.
class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ >= 0) ::close(descriptor_);
    }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return descriptor_; }
    /// Gives it to somebody else.
    int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

}  // namespace zobi::platform::bluez
