#include "trace.h"

#include "exchangeText.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace sim {

namespace {

// Out of the way of the low numbers, which the agent's own files are to get as usual.
constexpr int lowestOutput = 50;
constexpr std::size_t requestWidth = 62;

int moveUp(int fd) {
    return ::fcntl(fd, F_DUPFD_CLOEXEC, lowestOutput);
}

int openFile(const std::string& file) {
    const int low = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (low == -1) {
        throw std::system_error(errno, std::generic_category(), file);
    }
    const int high = moveUp(low);
    ::close(low);
    return high;
}

/// A terminal may take a part of a line, and keep whoever writes waiting with the rest: so it is
/// opened anew, for this program alone not to wait.
int openWithoutWaiting(int fd) {
    if (::isatty(fd) == 1) {
        const std::string itself = "/proc/self/fd/" + std::to_string(fd);
        const int low = ::open(itself.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (low != -1) {
            const int high = moveUp(low);
            ::close(low);
            return high;
        }
    }
    return moveUp(fd);
}

std::string timeText(std::chrono::milliseconds time) {
    constexpr std::size_t width = 9;
    const std::string seconds = decimal(static_cast<double>(time.count()) / 1000.0, 3);
    return padded("", width - std::min(width, seconds.size())) + seconds + " s";
}

} // namespace

bool takesLine(int fd) noexcept {
    pollfd writable{fd, POLLOUT, 0};
    return ::poll(&writable, 1, 0) == 1;
}

Trace::Trace(const std::string& file, std::chrono::milliseconds start_) :
    output(file.empty() ? moveUp(STDOUT_FILENO) : openFile(file)), start(start_), waits(true) {}

Trace::Trace(std::chrono::milliseconds start_) :
    output(openWithoutWaiting(STDOUT_FILENO)), start(start_), waits(false) {}

Trace::~Trace() {
    if (output != -1) {
        ::close(output);
    }
}

void Trace::line(const Exchange& exchange) {
    const std::string text = timeText(exchange.sentAt - start) + "  " +
                             padded(std::string("#") + std::to_string(exchange.number), 5) + " " +
                             padded(requestText(exchange), requestWidth) + " -> " +
                             outcomeText(exchange) + "\n";
    if (waits) {
        print(text);
    } else {
        printUnlessItWaits(text);
    }
}

/// A line of which a part was taken counts as dropped.
void Trace::printUnlessItWaits(const std::string& text) {
    const std::string gap =
        dropped == 0
            ? ""
            : "\nlines dropped because nobody took them: " + std::to_string(dropped) + "\n";
    const std::string all = gap + text;
    const ssize_t written = takesLine(output) ? ::write(output, all.data(), all.size()) : 0;
    dropped = written == static_cast<ssize_t>(all.size()) ? 0 : dropped + 1;
}

void Trace::print(const std::string& text) {
    if (::write(output, text.data(), text.size()) == -1) {
        return; // nobody listens: the agent goes on all the same
    }
}

} // namespace sim
