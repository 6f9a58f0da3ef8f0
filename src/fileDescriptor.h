#pragma once

/// Owns one file descriptor; closes it when it goes.
class FileDescriptor {
  public:
    explicit FileDescriptor(int descriptor) noexcept : fd(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    /// The descriptor, or -1 when none is owned.
    int get() const noexcept { return fd; }
    explicit operator bool() const noexcept { return fd >= 0; }
    /// Closes now; false with errno set when close(2) reports an error. The descriptor is gone
    /// either way.
    bool close() noexcept;

  private:
    int fd;
};
