#include "fileDescriptor.h"

#include <utility>

#include <unistd.h>

FileDescriptor::~FileDescriptor() {
    close();
}

bool FileDescriptor::close() noexcept {
    const int descriptor = std::exchange(fd, -1);
    return descriptor < 0 || ::close(descriptor) == 0;
}
