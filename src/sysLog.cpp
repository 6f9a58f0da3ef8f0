#include "sysLog.h"

#include "fileDescriptor.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

std::atomic<unsigned> dropped{0}; ///< lines since the last one that got through

/// Whether syslog(3) would not wait: it does when the log's reader is stuck and the queue is full.
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

/// Says how many lines were dropped, if any, and whether another one may follow.
bool makeUpForDropped() noexcept {
    if (!logTakesLine()) {
        return false;
    }
    const unsigned count = dropped.exchange(0);
    if (count == 0) {
        return true;
    }
    ::syslog(LOG_ERR, "lines dropped because the system log did not take them: %u", count);
    return logTakesLine();
}

} // namespace

void openSysLog(const char* ident, int options, int facility) noexcept {
    ::openlog(ident, options, facility);
}

void sysLog(int priority, const char* format, ...) noexcept {
    if (!makeUpForDropped()) {
        ++dropped;
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    ::vsyslog(priority, format, arguments);
    va_end(arguments);
}

void sysLogFailure(const char* what) noexcept {
    const int code = errno;
    sysLog(LOG_ERR, "%s, code %d (%s)", what, code, std::strerror(code));
}
