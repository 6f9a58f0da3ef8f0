#include "rig.h"

#include "agentSignals.h"
#include "sysLog.h"
#include "valueText.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Rig* rig = nullptr;
const std::thread::id testThread = std::this_thread::get_id();

} // namespace

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

Rig::Rig() {
    rig = this;
    std::string folder = std::filesystem::temp_directory_path() / "tavXXXXXX";
    const std::string root = ::mkdtemp(folder.data());
    paths.pidFile = root + "/tavd.pid";
    paths.productString = root + "/product";
    paths.vibVersions = root + "/versions";
    device.observe([this](const sim::Exchange& exchange) { exchanges.push_back(exchange); });
}

Rig::~Rig() {
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

void Rig::setVariable(std::uint16_t id, const std::string& text) {
    bmc.confSpace.values[id] = sim::parseValue(sim::findConfVariable(id)->kind, text);
}

void Rig::become(const char* machine) {
    bmc.blade.reset();
    bmc.fru.reset();
    sim::namedMachine(machine).setUp(bmc);
    sim::showSmbios(sim::namedMachine(machine).smbios(), sim::SmbiosForm::sysfs3, paths);
}

void Rig::writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path);
    EXPECT_TRUE(file << content << std::flush) << path;
}

std::string errorOf(const std::function<void()>& work) {
    try {
        work();
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
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

void addInterfaces(int last, int first) {
    shell("for i in $(seq " + std::to_string(first) + " " + std::to_string(last) +
          "); do echo tuntap add tav$i mode tap; echo addr add 10.0.$i.1/24 dev tav$i; done |"
          " ip -batch -");
}

// All at once: the kernel takes its time for each removal.
void removeInterfaces() {
    shell("all=$(ip -o link | grep -o 'tav[0-9]*') || exit 0;"
          "for i in $all; do echo link set $i group 7; done | ip -batch - && ip link del group 7");
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

/// The interfaces that the tests make, and the name they give the host, are theirs alone.
int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (::unshare(CLONE_NEWNET | CLONE_NEWUTS) != 0 || std::system("ip link set lo up") != 0) {
        std::perror("namespaces of its own are needed");
        return 77; // ctest takes it for skipped
    }
    return RUN_ALL_TESTS();
}
