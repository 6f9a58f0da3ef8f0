#pragma once

#include "addressShift.h"
#include "exchange.h"

namespace sim {

/// Masks the addresses in the port information of a FRU, of which exchanges show pieces, one after
/// the other: it keeps what they have shown so far, to know where addresses are.
class FruMask {
  public:
    explicit FruMask(const AddressShift& shift_) : shift(shift_) {}

    /// Exchanges that are not about a FRU stay as they are.
    void apply(Exchange& exchange);

  private:
    void mask(std::size_t offset, std::span<unsigned char> piece);
    std::size_t sourceOf(std::size_t offset, Data piece) const;
    void findAddresses();
    std::size_t behindArea(std::size_t place, std::size_t lengthUnit) const;
    std::size_t findInPort(std::size_t place, std::size_t end, unsigned functions,
                           bool namedTechnology);
    void findInFunction(std::size_t begin, std::size_t end, bool namedTechnology);
    void findInNic(std::size_t nic, std::size_t end);
    template <typename Secret>
    void note(std::size_t place, std::size_t end, const Secret& secret);
    unsigned at(std::size_t offset) const noexcept {
        return offset < image.size() ? image[offset] : 0U;
    }

    const AddressShift& shift;
    Bytes image;   // as the exchanges have it
    Bytes addends; // for each byte of `image`
};

} // namespace sim
