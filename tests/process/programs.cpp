#include "programs.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

int numberAt(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

/// Stands in for syslogd.
int logSocket = -1;
std::vector<LogLine> logLines;
const sockaddr_un logAddress{AF_UNIX, "/dev/log"};

/// "<14>Nov 22 10:00:00 IDENT[PID]: TEXT"; without LOG_PID no number.
LogLine parsed(const std::string& line) {
    const std::size_t stamp = line.find('>') + 1 + std::strlen("Nov 22 10:00:00 ");
    const std::size_t colon = line.find(": ", stamp);
    const std::string who = line.substr(stamp, colon - stamp);
    const std::size_t bracket = who.find('[');
    return {numberAt(line.c_str() + 1), who.substr(0, bracket),
            bracket == std::string::npos ? 0 : numberAt(&who[bracket + 1]), line.substr(colon + 2)};
}

int socketOn(int (*use)(int, const sockaddr*, socklen_t)) {
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (use(fd, reinterpret_cast<const sockaddr*>(&logAddress), sizeof logAddress) != 0) {
        std::perror(logAddress.sun_path);
        std::exit(EXIT_FAILURE);
    }
    return fd;
}

/// One from before the program begins: it must not count as a daemon's answer.
void leaveStraySignal() {
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGUSR1);
    ::sigprocmask(SIG_BLOCK, &held, nullptr);
    EXPECT_EQ(::raise(SIGUSR1), 0);
}

std::chrono::microseconds toMicroseconds(const timeval& span) {
    return std::chrono::seconds(span.tv_sec) + std::chrono::microseconds(span.tv_usec);
}

void redirect(const std::string& path, int target) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    ::dup2(fd, target);
    ::close(fd);
}

constexpr const char* makeWorld = R"(set -e
mount --make-rprivate /
mount -t proc proc /proc
echo 512 > /proc/sys/net/unix/max_dgram_qlen # as systemd sets it
mount -t tmpfs tmpfs /run
mkdir /run/dev
mount -t tmpfs tmpfs /run/dev
for node in null zero random urandom tty net/tun; do
    mkdir -p $(dirname /run/dev/$node)
    touch /run/dev/$node
    mount --bind /dev/$node /run/dev/$node
done
mount --move /run/dev /dev
ip link set lo up
ip tuntap add tav0 mode tap
ip addr add 10.0.0.1/24 dev tav0
)";

} // namespace

int End::code() const {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Programs::Programs() : folder("/run/tavXXXXXX") {
    EXPECT_NE(::mkdtemp(folder.data()), nullptr);
    log();
    logLines.clear();
}

Programs::~Programs() {
    EXPECT_FALSE(anyChild()) << "a process was left behind";
    std::filesystem::remove_all(folder);
}

pid_t Programs::start(const std::vector<std::string>& command) {
    const std::string error = folder + "/stderr";
    ::unlink(error.c_str());
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const std::string output = folder + "/stdout";
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::setpgid(0, 0);
        if (command.front() == TAV_SIM) { // a shell would let it in
            leaveStraySignal();
        }
        redirect(output, STDOUT_FILENO);
        redirect(error, STDERR_FILENO);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    return pid;
}

pid_t Programs::startSim(std::vector<std::string> options, const std::vector<std::string>& agent) {
    options.insert(options.begin(), {TAV_SIM, "--root", folder});
    options.emplace_back("--");
    options.insert(options.end(), agent.begin(), agent.end());
    return start(options);
}

End Programs::await(pid_t pid) {
    const auto begin = std::chrono::steady_clock::now();
    pollfd ended{static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)), POLLIN, 0};
    if (::poll(&ended, 1, std::chrono::milliseconds(patience).count()) != 1) {
        ADD_FAILURE() << "process " << pid << " does not end";
        ::kill(pid, SIGKILL);
    }
    ::close(ended.fd);
    End end{};
    rusage usage{};
    EXPECT_EQ(::wait4(pid, &end.status, 0, &usage), pid);
    end.worked = toMicroseconds(usage.ru_utime) + toMicroseconds(usage.ru_stime);
    log(); // before too much waits there
    end.took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    end.error = contentOf(folder + "/stderr");
    return end;
}

std::optional<pid_t> Programs::anyChild() {
    siginfo_t ended{};
    if (::waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT | WNOHANG) != 0) {
        return std::nullopt; // ECHILD
    }
    std::ifstream children("/proc/thread-self/children");
    pid_t pid = 0;
    return children >> pid ? std::optional(pid) : std::nullopt;
}

std::vector<int> Programs::endOfChildren() {
    std::vector<int> codes;
    while (const auto child = anyChild()) {
        codes.push_back(await(*child).code());
    }
    return codes;
}

pid_t Programs::daemon() const {
    return numberAt(contentOf(pidFile()).c_str());
}

std::string Programs::trace() const {
    return contentOf(folder + "/stdout");
}

void Programs::clearTrace() const {
    ::unlink((folder + "/stdout").c_str());
}

std::vector<LogLine> Programs::log() {
    std::array<char, 2048> line{};
    for (ssize_t size = 0; (size = ::recv(logSocket, line.data(), line.size(), 0)) >= 0;) {
        logLines.push_back(parsed({line.data(), static_cast<std::size_t>(size)}));
    }
    return logLines;
}

void Programs::fillLog() {
    const std::string_view line = "<14>Nov 22 10:00:00 test: filler";
    for (bool room = true; room;) { // a socket's own buffer may be full before the queue is
        const int writer = socketOn(::connect);
        room = ::write(writer, line.data(), line.size()) >= 0;
        while (::write(writer, line.data(), line.size()) >= 0) {
        }
        ::close(writer);
    }
}

std::vector<std::string> Programs::logTexts() {
    std::vector<std::string> texts;
    for (const LogLine& line : log()) {
        texts.push_back(std::to_string(LOG_PRI(line.priority)) + ": " + line.text);
    }
    return texts;
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

namespace {

/// Runs the tests as the second process of a process namespace: when the first one ends, for
/// whatever reason, everything that they started ends too.
int runTests() {
    if (std::system(makeWorld) != 0 || ::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        std::perror("namespaces of its own are needed");
        return EXIT_FAILURE;
    }
    logSocket = socketOn(::bind);
    return RUN_ALL_TESTS();
}

int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) != child) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleMock(&argc, argv);
    if (::unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWPID) != 0) {
        std::perror("namespaces of its own are needed");
        return 77; // ctest takes it for skipped
    }
    const pid_t first = ::fork();
    if (first != 0) {
        return waitFor(first);
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const pid_t tests = ::fork();
    ::_exit(tests == 0 ? runTests() : waitFor(tests));
}
