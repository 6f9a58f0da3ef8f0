#include "outputFile.h"

#include "bmcOptions.h"
#include "trace.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

// Out of the way of the low numbers: a daemon turns its standard streams elsewhere.
constexpr int lowestOutput = 50;

int moveUp(int fd) {
    return ::fcntl(fd, F_DUPFD_CLOEXEC, lowestOutput);
}

// It may say which server this is.
constexpr mode_t ownersAlone = 0600;

int openHigh(const std::string& path) {
    const int low =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, ownersAlone);
    const int fd = low == -1 ? -1 : moveUp(low);
    if (low != -1) {
        ::close(low);
    }
    return fd;
}

bool isSameFile(int fd, int other) {
    struct stat own {};
    struct stat others {};
    return ::fstat(fd, &own) == 0 && ::fstat(other, &others) == 0 && S_ISREG(own.st_mode) &&
           own.st_dev == others.st_dev && own.st_ino == others.st_ino;
}

} // namespace

OutputFile::OutputFile(std::string path_, const char* what_) :
    path(std::move(path_)), what(what_), complaints(moveUp(STDERR_FILENO)), fd(openHigh(path)) {
    if (fd == -1) {
        stop();
        return;
    }
    refuseSharing();
    if (::ftruncate(fd, 0) == -1 && errno != EINVAL) { // of a device or a pipe
        stop();
    }
}

OutputFile::~OutputFile() {
    for (const int open : {fd, complaints}) {
        if (open != -1) {
            ::close(open);
        }
    }
}

/// The lock is the open file's, and lasts while this process or its daemon has it.
void OutputFile::refuseSharing() const {
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
        if (isSameFile(fd, stream)) {
            throw UsageError("'" + path + "' is where standard output or standard error goes");
        }
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) == -1 && errno == EWOULDBLOCK) {
        throw UsageError("'" + path + "' is being written already");
    }
}

void OutputFile::write(std::string_view bytes) {
    if (fd == -1) {
        return;
    }
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written == static_cast<ssize_t>(bytes.size())) {
        return;
    }
    if (written != -1) {
        errno = ENOSPC; // what fits was taken
    }
    stop();
}

void OutputFile::stop() noexcept {
    const int error = errno;
    try {
        const std::string line =
            std::string(what) + " stopped: " + path + ": " + std::strerror(error) + "\n";
        if (takesLine(complaints) && ::write(complaints, line.data(), line.size()) == -1) {
            // nobody listens
        }
    } catch (const std::exception&) {
        // without a line, then
    }
    if (fd != -1) {
        ::close(fd);
        fd = -1;
    }
    errno = error;
}

} // namespace sim
