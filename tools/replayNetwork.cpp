#include "replayNetwork.h"

#include "text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace sim {

namespace {

using Words = std::vector<std::string>;

/// Runs ip(8) without a word from it; true if it succeeded.
bool ip(const Words& words) {
    std::vector<char*> arguments = {const_cast<char*>("ip")};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t quiet;
    ::posix_spawn_file_actions_init(&quiet);
    ::posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error =
        ::posix_spawnp(&child, arguments[0], &quiet, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&quiet);
    if (error != 0) {
        throw std::runtime_error(std::string("ip, of the package iproute2, does not start: ") +
                                 std::strerror(error));
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void require(const Words& words) {
    if (!ip(words)) {
        std::string line = "the recorded network cannot be set up: ip";
        for (const std::string& word : words) {
            line += " " + word;
        }
        throw std::runtime_error(line);
    }
}

/// Of whatever kind this kernel offers; the number cannot be chosen for the last.
void create(const RecordedInterface& interface) {
    const std::string index = std::to_string(interface.index);
    constexpr unsigned peers = 1U << 30U; // above the indexes that hosts have
    const std::string peer = std::to_string((peers | interface.index) & ~(peers << 1U));
    if (ip({"link", "add", "name", interface.name, "index", index, "type", "dummy"}) ||
        ip({"link", "add", "name", interface.name, "index", index, "type", "veth", "peer", "name",
            "peer" + index, "index", peer})) {
        return;
    }
    require({"tuntap", "add", "dev", interface.name, "mode", "tap"});
}

bool isLoopback(const RecordedInterface& interface) {
    return (interface.flags & IFF_LOOPBACK) != 0;
}

void addAddresses(const RecordedInterface& interface) {
    for (const auto& [address, length, broadcast] : interface.ipv4) {
        Words words = {"address", "replace", addressText(address) + "/" + std::to_string(length),
                       "dev", interface.name};
        if (broadcast != std::array<unsigned char, 4>{}) {
            words.insert(words.end(), {"broadcast", addressText(broadcast)});
        }
        require(words);
    }
    // The kernel puts the last one of a scope first.
    for (auto next = interface.ipv6.rbegin(); next != interface.ipv6.rend(); ++next) {
        require({"address", "replace",
                 addressText(next->address) + "/" + std::to_string(next->prefixLength), "dev",
                 interface.name, "nodad"});
    }
}

void setUp(const RecordedInterface& interface) {
    if (!isLoopback(interface)) {
        create(interface);
        require({"link", "set", "dev", interface.name, "addrgenmode", "none"});
        ip({"link", "set", "dev", interface.name, "address", macText(interface.mac)});
    }
    ip({"link", "set", "dev", interface.name, "mtu", std::to_string(interface.mtu)});
    if ((interface.flags & IFF_UP) != 0) {
        require({"link", "set", "dev", interface.name, "up"});
    }
    addAddresses(interface);
}

} // namespace

void setUpNetwork(const std::vector<RecordedInterface>& interfaces) {
    if (::unshare(CLONE_NEWNET) != 0) {
        throw std::runtime_error(
            std::string("a network namespace of its own is needed, which takes root: ") +
            std::strerror(errno));
    }
    for (const RecordedInterface& interface : interfaces) {
        setUp(interface);
    }
}

} // namespace sim
