#include "fileDescriptor.h"

#include <utility>

#include <unistd.h>

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        close();
        fd = std::exchange(other.fd, -1);
    }
    return *this;
}

FileDescriptor::~FileDescriptor() {
    close();
}

bool FileDescriptor::close() noexcept {
    const int descriptor = std::exchange(fd, -1);
    return descriptor < 0 || ::close(descriptor) == 0;
}
