#pragma once

#include "bmcOptions.h"
#include "misbehaviour.h"
#include "recordOptions.h"
#include "statusForms.h"

#include <optional>

namespace sim {

struct SimOptions : BmcOptions {
    bool noDevice = false;
    bool versions = false;
    std::optional<tavStatus::Form> status;
    SmbiosForm smbiosForm = SmbiosForm::sysfs3;
    std::string root; // empty: the real host's files
    RecordOptions recording;
    std::string replay; // a record; empty: none
    Misbehaviour misbehaviour;
    std::vector<char*> agentArguments; // argv[0], the agent's own, and the closing null pointer

    bool hasAgentOptions() const noexcept { return agentArguments.size() > 2; }
};

/// Everything up to "--" is the simulator's, everything behind it the agent's.
SimOptions parseSimOptions(int argc, char** argv);
std::string simUsage();

} // namespace sim
