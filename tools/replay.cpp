#include "replay.h"

#include "exchangeText.h"
#include "replayNetwork.h"
#include "text.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <random>

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

/// One that nobody else has.
std::string freshPidFile() {
    std::random_device random;
    return std::filesystem::absolute(std::filesystem::temp_directory_path()) /
           ("tav_sim." + std::to_string(random()) + std::to_string(random()) + ".pid");
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
    path(path_), pidFile(freshPidFile()),
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
    files.pidFile = pidFile;
    if (const auto maker = header().maker; maker != 0 && maker != TAV_IANA_ENTERPRISE_NUMBER) {
        say("was made by an agent for the maker's number " + std::to_string(maker) +
            "; this one is for " + std::to_string(TAV_IANA_ENTERPRISE_NUMBER) +
            ", and differs at the first request that carries it");
    }
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
        endAsCut();
    }
    const std::string place = recorded == nullptr
                                  ? "behind its end, line " + std::to_string(reader->line())
                                  : "line " + std::to_string(recorded->line);
    const std::string expected =
        recorded == nullptr || !recorded->exchange ? "nothing" : wholeRequest(*recorded->exchange);
    end(different, place + ": the agent asks something else\n  recorded: " + expected +
                       "\n  asked:    " + wholeRequest(asked));
}

void Replay::endAsCut() const {
    end(recordCut,
        "was cut off behind line " + std::to_string(reader->line()) +
            "; replayed up to there, exchanges: " + std::to_string(player.exchangeCount()));
}

void Replay::endWhereCut() const {
    if (player.upcoming() == nullptr && !reader->whole()) {
        endAsCut();
    }
}

std::string Replay::closingLine() const {
    const RecordedStep* const left = player.upcoming();
    if (left != nullptr && left->exchange) {
        end(different, "line " + std::to_string(left->line) +
                           ": the agent has ended without asking\n  recorded: " +
                           wholeRequest(*left->exchange));
    }
    if (!reader->whole()) {
        endAsCut();
    }
    return "\nReplayed as recorded, exchanges: " + std::to_string(player.exchangeCount()) + "\n";
}

void Replay::end(Status status, const std::string& text) const {
    say(text);
    cleanUp();
    ::_exit(status);
}

void Replay::say(const std::string& text) const {
    const std::string line = "tav_sim: " + path + ": " + text + "\n";
    if (::write(complaints, line.data(), line.size()) == -1) {
        // nobody listens; the status tells
    }
}

void Replay::cleanUp() const noexcept {
    ::unlink(pidFile.c_str());
}

} // namespace sim
