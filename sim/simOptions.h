#pragma once

#include "machine.h"
#include "misbehaviour.h"

#include <cstdint>
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

struct SimOptions {
    bool help = false;
    bool quiet = false;
    bool noDevice = false;
    bool versions = false;
    bool connected = true;
    double speed = 1;
    const Machine* machine = &namedMachine("plain");
    SmbiosForm smbiosForm = SmbiosForm::sysfs3;
    std::string root;                                          // empty: the real host's files
    std::string trace;                                         // empty: standard output
    std::vector<std::pair<std::uint16_t, std::string>> values; // configuration space
    Misbehaviour misbehaviour;
    std::vector<char*> agentArguments; // argv[0], the agent's own, and the closing null pointer
};

/// Everything up to "--" is the simulator's, everything behind it the agent's.
SimOptions parseSimOptions(int argc, char** argv);
const char* simUsage() noexcept;

} // namespace sim
