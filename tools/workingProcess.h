#pragma once

#include <sys/types.h>

namespace sim {

/// The process that does the agent's work: a daemon's child takes over from its parent. From now on
/// `atEnd` is called at the exit(3) of either. Throws std::bad_alloc.
void watchWorkingProcess(void (*atEnd)());

/// Which of them it is now; its parent, which ends later or earlier, knows, too.
pid_t workingProcess() noexcept;

} // namespace sim
