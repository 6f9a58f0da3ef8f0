// An IPMI device that answers everything, put under the unmodified agent with LD_PRELOAD: without a
// BMC the agent does not stay, and its memory at rest could not be measured.

#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <linux/ipmi.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int deviceDescriptor = 1000;
constexpr unsigned short answerLength = 16; // as long as the BMC's identity
constexpr unsigned char serverMarker = 'A'; // its last byte: no blade

// Where a read of the configuration space has the variable, and its answer the value.
constexpr std::size_t variableAt = 5;
constexpr std::size_t lengthAt = 4;
constexpr unsigned char bootWatchdogTime = 65;
constexpr unsigned char softWatchdogTime = 67;

long lastId = 0;
unsigned char lastVariable = 0;

/// Whatever is asked for is 1, and a time 0x0101 seconds: switches are on, the agent is connected.
int receive(ipmi_recv& record) {
    record.recv_type = IPMI_RESPONSE_RECV_TYPE;
    record.msgid = lastId;
    record.msg.data_len = answerLength;
    std::memset(record.msg.data, 0, answerLength);
    const bool isTime = lastVariable == bootWatchdogTime || lastVariable == softWatchdogTime;
    record.msg.data[lengthAt] = isTime ? 2 : 1;
    record.msg.data[lengthAt + 1] = 1;
    record.msg.data[lengthAt + 2] = 1;
    record.msg.data[answerLength - 1] = serverMarker;
    return 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    if (std::strcmp(path, "/dev/ipmi0") == 0) {
        return deviceDescriptor;
    }
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list rest;
    va_start(rest, request);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    if (fd != deviceDescriptor) {
        return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
    }
    if (request == IPMICTL_SEND_COMMAND) {
        const auto& asked = *static_cast<ipmi_req*>(argument);
        lastId = asked.msgid;
        lastVariable = asked.msg.data_len > variableAt ? asked.msg.data[variableAt] : 0;
        return 0;
    }
    return receive(*static_cast<ipmi_recv*>(argument));
}

int select(int, fd_set*, fd_set*, fd_set*, timeval*) {
    return 1;
}

int close(int fd) {
    return fd == deviceDescriptor ? 0 : static_cast<int>(::syscall(SYS_close, fd));
}

} // extern "C"
