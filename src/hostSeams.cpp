// The production side of the three seams: nothing but the system's own calls.

#include "agentClock.h"
#include "hostPaths.h"
#include "ipmiDevice.h"

#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

class KernelIpmiDevice final : public IpmiDevice {
  public:
    int open(const char* path) noexcept override { return ::open(path, O_RDWR); }
    int send(int fd, ipmi_req& request) noexcept override {
        return ::ioctl(fd, IPMICTL_SEND_COMMAND, &request);
    }
    int wait(int fd, fd_set& readable, timeval& budget) noexcept override {
        return ::select(fd + 1, &readable, nullptr, nullptr, &budget);
    }
    int receive(int fd, ipmi_recv& record) noexcept override {
        return ::ioctl(fd, IPMICTL_RECEIVE_MSG, &record);
    }
    int lock(int fd) noexcept override { return ::flock(fd, LOCK_EX | LOCK_NB); }
    int close(int fd) noexcept override { return ::close(fd); }
};

class SystemClock final : public AgentClock {
  public:
    std::chrono::milliseconds monotonic() noexcept override {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    }
    int waitForSignal(unsigned seconds, const sigset_t& mask) noexcept override {
        const timespec timeout{static_cast<time_t>(seconds), 0};
        return ::ppoll(nullptr, 0, &timeout, &mask) == -1 && errno != EINTR ? errno : 0;
    }
    int waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                         unsigned seconds) noexcept override {
        timespec deadline{};
        ::clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += static_cast<time_t>(seconds);
        return ::pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &deadline);
    }
    void pause(std::chrono::milliseconds span) noexcept override {
        const auto whole = std::chrono::floor<std::chrono::seconds>(span);
        const std::chrono::nanoseconds rest = span - whole;
        const timespec time{whole.count(), rest.count()};
        ::clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
    }
    void alarm(unsigned seconds) noexcept override { ::alarm(seconds); }
};

} // namespace

IpmiDevice& ipmiDevice() noexcept {
    static KernelIpmiDevice device;
    return device;
}

AgentClock& agentClock() noexcept {
    static SystemClock clock;
    return clock;
}

HostPaths hostPaths() noexcept {
    return {};
}
