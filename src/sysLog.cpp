#include "sysLog.h"

#include <cstdarg>

void openSysLog(const char* ident, int options, int facility) noexcept {
    ::openlog(ident, options, facility);
}

void sysLog(int priority, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    ::vsyslog(priority, format, arguments);
    va_end(arguments);
}
