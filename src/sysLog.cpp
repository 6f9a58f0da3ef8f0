#include "sysLog.h"

#include "fileDescriptor.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

/// What openlog(3) is given; before the log is opened, what it stands for without that.
struct Identity {
    const char* ident;
    int options, facility;
};
constinit Identity identity{nullptr, 0, LOG_USER};
constinit std::mutex lineLock; // holds `identity` and libc's connection together

std::atomic<unsigned> dropped{0}; ///< lines since the last one that got through

/// Whether the log's queue has room: syslog(3) waits for that while the log's reader is stuck.
/// Anything else that is wrong with the log does not hold it up.
bool logTakesLine() noexcept {
    constexpr sockaddr_un log{AF_UNIX, _PATH_LOG};
    const FileDescriptor probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe ||
        ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&log), sizeof log) == -1) {
        return true;
    }
    pollfd writable{probe.get(), POLLOUT, 0};
    return ::poll(&writable, 1, 0) != 0;
}

/// Over a connection of its own: a socket's buffer is charged with all that was sent through it and
/// nobody has read, and a full one makes syslog(3) wait as well, however much room the queue has.
__attribute__((format(printf, 2, 0))) void writeLine(int priority, const char* format,
                                                     va_list arguments) noexcept {
    const std::lock_guard held(lineLock);
    ::closelog();
    ::openlog(identity.ident, identity.options, identity.facility);
    ::vsyslog(priority, format, arguments);
}

__attribute__((format(printf, 2, 3))) void writeLine(int priority, const char* format,
                                                     ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    writeLine(priority, format, arguments);
    va_end(arguments);
}

/// Says how many lines were dropped, if any, and whether another one may follow.
bool makeUpForDropped() noexcept {
    if (!logTakesLine()) {
        return false;
    }
    const unsigned count = dropped.exchange(0);
    if (count == 0) {
        return true;
    }
    writeLine(LOG_ERR, "lines dropped because the system log did not take them: %u", count);
    return logTakesLine();
}

} // namespace

void openSysLog(const char* ident, int options, int facility) noexcept {
    const std::lock_guard held(lineLock);
    identity = {ident, options, facility};
}

void sysLog(int priority, const char* format, ...) noexcept {
    if (!makeUpForDropped()) {
        ++dropped;
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    writeLine(priority, format, arguments);
    va_end(arguments);
}

void sysLogFailure(const char* what) noexcept {
    const int code = errno;
    sysLog(LOG_ERR, "%s, code %d (%s)", what, code, std::strerror(code));
}
