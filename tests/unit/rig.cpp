#include "rig.h"

#include "agentSignals.h"
#include "sysLog.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Rig* rig = nullptr;
const std::thread::id testThread = std::this_thread::get_id();

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
    return rig->device;
}
AgentClock& agentClock() noexcept {
    return rig->clock;
}
HostPaths hostPaths() noexcept {
    return rig->paths.paths();
}

void openSysLog(const char* /*ident*/, int /*options*/, int /*facility*/) noexcept {}
void sysLog(int priority, const char* format, ...) noexcept {
    std::array<char, 1024> text{};
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is not seen through
    EXPECT_GE(std::vsnprintf(text.data(), text.size(), format, arguments), 0);
    va_end(arguments);
    static std::mutex mutex;
    const std::lock_guard held(mutex);
    rig->log.push_back({priority, text.data()});
    if (std::this_thread::get_id() != testThread) {
        rig->news.release();
    }
}

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

Rig::Rig() :
    bmc([this] { return clock.now; }), device(bmc, [this](std::chrono::microseconds span) {
        clock.pass(span);
        return true;
    }) {
    rig = this;
    std::string folder = std::filesystem::temp_directory_path() / "tavXXXXXX";
    const std::string root = ::mkdtemp(folder.data());
    paths.pidFile = root + "/tavd.pid";
    paths.productString = root + "/product";
    paths.vibVersions = root + "/versions";
    sim::showSmbios({}, sim::SmbiosForm::none, paths);
    device.observe([this](const sim::Exchange& exchange) { exchanges.push_back(exchange); });
}

Rig::~Rig() {
    clock.now += std::chrono::hours(1);
    kernelName = nullptr;
    EXPECT_EQ(device.openCount(), 0U) << "descriptors of the IPMI device left open";
    std::filesystem::remove_all(std::filesystem::path(paths.pidFile).parent_path());
    rig = nullptr;
}

std::vector<std::string> Rig::requests() const {
    std::vector<std::string> lines;
    for (const sim::Exchange& exchange : exchanges) {
        lines.push_back(hex(std::array{exchange.netfn}) + "/" + hex(std::array{exchange.cmd}) +
                        ": " + hex(exchange.request));
    }
    return lines;
}

void Rig::goWrong(const std::string& fault) {
    sim::Fault shifted = sim::parseFault(fault);
    shifted.first += device.exchangeCount();
    shifted.last += shifted.last == sim::Fault::always ? 0 : device.exchangeCount();
    device.misbehave(
        sim::Misbehaviour{.faults = {shifted}, .failingCall = {}, .raisedSignals = {}});
}

void Rig::writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path);
    EXPECT_TRUE(file << content << std::flush) << path;
}

std::string hex(std::span<const unsigned char> bytes) {
    std::string text;
    constexpr const char* digits = "0123456789abcdef";
    for (const unsigned char byte : bytes) {
        text += text.empty() ? "" : " ";
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

IPv6Address ipv6(const char* text) {
    in6_addr address{};
    EXPECT_EQ(::inet_pton(AF_INET6, text, &address), 1) << text;
    return IPv6Address(address);
}

void removeInterfaces() {
    shell("for i in $(ip -o link | grep -o 'tav[0-9]*'); do ip link del $i; done");
}

void inOwnProcess(const std::function<void()>& body) {
    static_cast<void>(std::fflush(stdout));
    const pid_t process = ::fork();
    if (process == 0) {
        agentSignals::hold();
        body();
        static_cast<void>(std::fflush(stdout));
        ::_exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
}

void shell(const std::string& command) {
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command;
}

/// The interfaces that the tests make are theirs alone.
int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (::unshare(CLONE_NEWNET) != 0 || std::system("ip link set lo up") != 0) {
        std::perror("a network namespace of its own is needed");
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
