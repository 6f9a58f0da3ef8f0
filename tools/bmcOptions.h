#pragma once

#include "machine.h"

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Not a usable command line; what() is one line without its end.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// One option of a command line.
struct Option {
    std::string name;
    bool hasValue;
    /// Throws std::invalid_argument for a value that does not do.
    std::function<void(const std::string& value)> take;
};

/// Takes the options up to the end or "--"; gives the arguments behind that. Throws UsageError.
std::span<char*> parseOptions(const std::vector<Option>& known, std::span<char*> arguments);

/// What a simulated BMC is started with.
struct BmcOptions {
    bool help = false;
    bool version = false;
    bool quiet = false;
    bool connected = true;
    double speed = 1;
    const Machine* machine = &namedMachine("plain");
    std::string trace;                                   // empty: standard output
    std::vector<std::pair<std::uint16_t, Bytes>> values; // configuration space
};

/// The options that fill `options`.
std::vector<Option> bmcOptionTable(BmcOptions& options);
const char* bmcUsage() noexcept;
void setUp(Bmc& bmc, const BmcOptions& options);

} // namespace sim
