#pragma once

#include "ipmiMessage.h"

namespace sim {

/// A FRU inventory device behind the BMC, accessed by bytes (IPMI 2.0, 34).
class FruDevice {
  public:
    Bytes image; ///< as long as the device has room
    unsigned char id = 5;
    /// Added to the count that an answer to a read gives of its bytes.
    int countError = 0;

    /// The maker's Get Mezz: which FRU device the adapters are described in.
    Reply adapter(Data request) const;
    Reply areaInfo(Data request) const;
    Reply read(Data request) const;
    Reply write(Data request);

  private:
    Bytes sizeAndAccess() const;
};

} // namespace sim
