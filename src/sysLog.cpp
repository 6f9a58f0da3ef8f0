#include "sysLog.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

void openSysLog(const char* ident, int options, int facility) noexcept {
    ::openlog(ident, options, facility);
}

void sysLog(int priority, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    ::vsyslog(priority, format, arguments);
    va_end(arguments);
}

void sysLogFailure(const char* what) noexcept {
    const int code = errno;
    sysLog(LOG_ERR, "%s, code %d (%s)", what, code, std::strerror(code));
}
