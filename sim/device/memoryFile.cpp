#include "memoryFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace sim {

namespace {

// Out of the way of the low numbers: a daemon turns its standard streams elsewhere.
constexpr int lowestFile = 50;

[[noreturn]] void fail() {
    throw std::system_error(errno, std::generic_category(), "memory file");
}

void fill(int fd, Data content) {
    while (!content.empty()) {
        const ssize_t written = ::write(fd, content.data(), content.size());
        if (written == -1) {
            fail();
        }
        content = content.subspan(static_cast<std::size_t>(written));
    }
}

} // namespace

std::string memoryFile(Data content) {
    const int low = ::memfd_create("tav_sim", MFD_CLOEXEC);
    if (low == -1) {
        fail();
    }
    const int fd = ::fcntl(low, F_DUPFD_CLOEXEC, lowestFile);
    ::close(low);
    if (fd == -1) {
        fail();
    }
    fill(fd, content);
    return "/proc/self/fd/" + std::to_string(fd);
}

} // namespace sim
