#include "world.h"

#include "sysLog.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

World* world = nullptr;

} // namespace

const char* kernelName = nullptr;

extern "C" int uname(utsname* buffer) {
    if (kernelName != nullptr && *kernelName == '\0') {
        errno = EFAULT;
        return -1;
    }
    const long result = ::syscall(SYS_uname, buffer);
    if (kernelName != nullptr) {
        *std::copy_n(kernelName, std::strlen(kernelName), buffer->sysname) = '\0';
        *std::copy_n("7.0.3", 5, buffer->release) = '\0';
    }
    return static_cast<int>(result);
}

IpmiDevice& ipmiDevice() noexcept {
    return *world->agentsDevice;
}
AgentClock& agentClock() noexcept {
    return *world->agentsClock;
}
HostPaths hostPaths() noexcept {
    return world->paths.paths();
}

void openSysLog(const char* /*ident*/, int /*options*/, int /*facility*/) noexcept {}
void sysLogFailure(const char* what) noexcept {
    sysLog(LOG_ERR, "%s", what);
}

std::chrono::milliseconds FakeClock::now{1000};

int FakeClock::waitForSignal(unsigned seconds, const sigset_t& /*mask*/) noexcept {
    waits.push_back(seconds);
    pass(std::chrono::seconds(seconds));
    return 0;
}

int FakeClock::waitForCondition(pthread_cond_t& condition, pthread_mutex_t& mutex,
                                unsigned seconds) noexcept {
    waits.push_back(seconds);
    pass(std::chrono::seconds(seconds));
    const int result = onWait();
    return result == 0 ? ::pthread_cond_wait(&condition, &mutex) : result;
}

World::World() :
    bmc([this] { return clock.now; }), device(bmc, [this](std::chrono::microseconds span) {
        clock.pass(span);
        return true;
    }) {
    world = this;
    sim::showSmbios({}, sim::SmbiosForm::none, paths);
}

World::~World() {
    clock.now += std::chrono::hours(1);
    kernelName = nullptr;
    world = nullptr;
}
