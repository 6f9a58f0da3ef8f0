#pragma once

#include "recordedStep.h"

#include <array>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <vector>

// A record of what an agent and its BMC said to each other, as text: docs/record.md has the format.

namespace sim {

/// A network interface, as the agent's host had it at the start of a record.
struct RecordedInterface {
    struct Ipv4 {
        std::array<unsigned char, 4> address{};
        unsigned prefixLength = 0;
        std::array<unsigned char, 4> broadcast{}; // all zero: none
        bool operator==(const Ipv4&) const = default;
    };
    struct Ipv6 {
        std::array<unsigned char, 16> address{};
        unsigned prefixLength = 0;
        bool operator==(const Ipv6&) const = default;
    };

    unsigned index = 0;
    std::string name;
    unsigned flags = 0; // IFF_UP, ...
    unsigned mtu = 0;
    std::array<unsigned char, 6> mac{};
    std::vector<Ipv4> ipv4 = {};
    std::vector<Ipv6> ipv6 = {};
    bool operator==(const RecordedInterface&) const = default;
};

/// Whose conversation a record is.
struct RecordHeader {
    std::string program; // name and version
    std::string started; // date and time, UTC
    std::string kernel;
    std::uint32_t maker = 0; // IANA enterprise number that the agent was built with
    bool masked = false;
    std::vector<std::string> options = {}; // the agent's
    /// What the SMBIOS tables tell of the machine; without them empty.
    struct System {
        std::string manufacturer;
        std::string product;
        std::string serialNumber;
        std::string family;
        bool operator==(const System&) const = default;
    };
    std::optional<System> system = {};
    std::vector<std::string> enclosureSerials = {};
    std::vector<RecordedInterface> interfaces = {};
    bool operator==(const RecordHeader&) const = default;
};

// What a record is written with, each a whole line or several:
std::string recordHeaderText(const RecordHeader& header);
/// Times count from `start`.
std::string recordLine(const Exchange& exchange, std::chrono::milliseconds start);
/// The agent was told to end, as was found when the next exchange began.
std::string recordEndRequest(std::chrono::milliseconds time);
std::string recordClosing(unsigned exchanges);

/// A record that cannot be used, from some line on; what() is one line without its end.
class RecordError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Reads a record line by line, however long it is.
class RecordReader {
  public:
    /// Reads the header. Throws RecordError, and so does next().
    explicit RecordReader(std::istream& input_);

    const RecordHeader& header() const noexcept { return head; }
    /// The next step; none when the record is over, or was cut off there.
    std::optional<RecordedStep> next();
    /// Whether the record was brought to its end by the program that wrote it.
    bool whole() const noexcept { return closed; }
    /// Of the last line that was read, from 1.
    unsigned long line() const noexcept { return lineNumber; }

  private:
    bool readLine();
    void takeHeader();
    template <typename Work>
    void parsing(Work work) const;

    std::istream& input;
    RecordHeader head;
    std::string text;     // of the last line
    bool pending = false; // `text` is the first line behind the header
    bool closed = false;
    unsigned exchanges = 0;
    unsigned long lineNumber = 0;
};

} // namespace sim
