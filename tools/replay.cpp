#include "replay.h"

#include "exchangeText.h"
#include "replayNetwork.h"
#include "text.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <linux/ipmi.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr int lowestDescriptor = 50; // a daemon turns its standard streams elsewhere

SmbiosTable tableOf(const RecordHeader& header) {
    SmbiosTable table;
    if (const auto& system = header.system) {
        table.addSystem(
            {system->manufacturer, system->product, system->serialNumber, system->family});
    }
    for (const std::string& serial : header.enclosureSerials) {
        table.addEnclosure(serial);
    }
    table.addEnd();
    return table;
}

/// All that the replay compares.
std::string wholeRequest(const Exchange& exchange) {
    if (exchange.failedCall == DeviceCall::open) {
        return requestText(exchange);
    }
    std::string bytes;
    for (const unsigned char byte : exchange.request) {
        bytes += " " + hexByte(byte).substr(2);
    }
    return requestText(exchange) + " (network function " + hexByte(exchange.netfn) + ", LUN " +
           std::to_string(exchange.lun) + ", command " + hexByte(exchange.cmd) +
           (exchange.addressType == IPMI_IPMB_ADDR_TYPE
                ? ", IPMB address " + hexByte(exchange.slaveAddress)
                : "") +
           ", data:" + (bytes.empty() ? " none" : bytes) + ")";
}

} // namespace

Replay::Replay(const std::string& path_) :
    path(path_),
    player(
        time, [this] { return next(); },
        [this](const RecordedStep* recorded, const Exchange& asked) { refuse(recorded, asked); }),
    complaints(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, lowestDescriptor)) {
    file.open(path);
    if (!file) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    try {
        reader.emplace(file);
    } catch (const RecordError& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

void Replay::setUpHost(SmbiosForm form, HostFiles& files) const {
    const bool hasTables = header().system || !header().enclosureSerials.empty();
    showSmbios(tableOf(header()), hasTables ? form : SmbiosForm::none, files);
    setUpNetwork(header().interfaces);
}

std::optional<RecordedStep> Replay::next() {
    try {
        return reader->next();
    } catch (const RecordError& error) {
        end(unusable, error.what());
    }
}

void Replay::refuse(const RecordedStep* recorded, const Exchange& asked) const {
    if (recorded == nullptr && !reader->whole()) {
        end(recordCut,
            "was cut off behind line " + std::to_string(reader->line()) + "; replayed up to there");
    }
    const std::string place = recorded == nullptr
                                  ? "behind its end, line " + std::to_string(reader->line())
                                  : "line " + std::to_string(recorded->line);
    const std::string expected =
        recorded == nullptr || !recorded->exchange ? "nothing" : wholeRequest(*recorded->exchange);
    end(different, place + ": the agent asks something else\n  recorded: " + expected +
                       "\n  asked:    " + wholeRequest(asked));
}

std::string Replay::closingLine() {
    const std::string count = std::to_string(player.exchangeCount());
    const RecordedStep* const left = player.upcoming();
    if (left != nullptr && left->exchange) {
        end(different, "line " + std::to_string(left->line) +
                           ": the agent has ended without asking\n  recorded: " +
                           wholeRequest(*left->exchange));
    }
    if (!reader->whole()) {
        end(recordCut, "was cut off behind line " + std::to_string(reader->line()) +
                           "; replayed up to there, exchanges: " + count);
    }
    return "\nReplayed as recorded, exchanges: " + count + "\n";
}

void Replay::end(Status status, const std::string& text) const {
    const std::string line = "tav_sim: " + path + ": " + text + "\n";
    if (::write(complaints, line.data(), line.size()) == -1) {
        // nobody listens; the status tells
    }
    ::_exit(status);
}

} // namespace sim
