// Agents of one host, a daemon and a single pass perhaps, take turns at the port information.

#include "pniLock.h"

#include "agentClock.h"
#include "agentSignals.h"

#include <cerrno>

namespace {

constexpr std::chrono::milliseconds betweenTries = pniLockTurn / 2;
constexpr int maxTries = std::chrono::seconds(10) / betweenTries;

} // namespace

bool lockPniRecord(const tavIpmi::TavIpmi& ipmi) noexcept {
    for (int tries = 1; !ipmi.tryLock(); ++tries) {
        if (errno != EWOULDBLOCK) {
            return true;
        }
        if (tries == maxTries || agentSignals::endRequested()) {
            return false;
        }
        agentClock().pause(betweenTries);
    }
    return true;
}
