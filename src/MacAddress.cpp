#include "MacAddress.h"

#include <algorithm>

MacAddress& MacAddress::operator=(const unsigned char* bytes) noexcept {
    std::copy_n(bytes, sizeof v, v);
    return *this;
}

MacAddress& MacAddress::operator=(const char* bytes) noexcept {
    std::transform(bytes, bytes + sizeof v, v,
                   [](char byte) { return static_cast<unsigned char>(byte); });
    return *this;
}

MacAddress& MacAddress::operator=(unsigned char byte) noexcept {
    std::fill(std::begin(v), std::end(v), byte);
    return *this;
}

MacAddress::operator std::string() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : v) {
        if (!text.empty()) {
            text += ':';
        }
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}
