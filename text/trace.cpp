#include "trace.h"

#include "exchangeText.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
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

std::string timeText(std::chrono::milliseconds time) {
    constexpr std::size_t width = 9;
    const std::string seconds = decimal(static_cast<double>(time.count()) / 1000.0, 3);
    return padded("", width - std::min(width, seconds.size())) + seconds + " s";
}

} // namespace

Trace::Trace(const std::string& file, std::chrono::milliseconds start_) :
    output(file.empty() ? moveUp(STDOUT_FILENO) : openFile(file)), start(start_) {}

Trace::~Trace() {
    if (output != -1) {
        ::close(output);
    }
}

void Trace::line(const Exchange& exchange) {
    print(timeText(exchange.sentAt - start) + "  " +
          padded(std::string("#") + std::to_string(exchange.number), 5) + " " +
          padded(requestText(exchange), requestWidth) + " -> " + outcomeText(exchange) + "\n");
}

void Trace::print(const std::string& text) {
    if (::write(output, text.data(), text.size()) == -1) {
        return; // nobody listens: the agent goes on all the same
    }
}

} // namespace sim
