#pragma once

#include "ipmiMessage.h"

#include <array>

namespace sim {

/// What the BMC says of the firmware in its two EEPROMs.
class EepromVersions {
  public:
    /// Status, then the versions of firmware, sensor data records and booter.
    using Record = std::array<unsigned char, 16>;

    /// Serves one request: command specifier and what follows it.
    Reply serve(Data request) const;

    std::array<Record, 2> records = {{
        {0x01, 1, 0x40, 0, 0, 7, 'A', 3, 0x12, 'C', 0x34, 0x02, 1, 0x05, 0x00, 0x00},
        {0x00, 1, 0x38, 0, 0, 2, 'A', 3, 0x10, 'C', 0x34, 0x02, 1, 0x04, 0x00, 0x00},
    }};
};

} // namespace sim
