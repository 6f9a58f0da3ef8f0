#include "Guid.h"

#include <algorithm>

Guid::Guid() : ch{} {
    buildString();
}

Guid::Guid(const unsigned char* bytes) : ch{} {
    *this = bytes;
}

Guid& Guid::operator=(const Guid& other) {
    if (this != &other) {
        *this = other.ch;
    }
    return *this;
}

Guid& Guid::operator=(const unsigned char* bytes) {
    std::copy_n(bytes, sizeof ch, ch);
    buildString();
    return *this;
}

Guid& Guid::operator=(unsigned char byte) {
    std::fill(std::begin(ch), std::end(ch), byte);
    buildString();
    return *this;
}

Guid::operator bool() const noexcept {
    return std::any_of(std::begin(ch), std::end(ch), [](unsigned char byte) { return byte != 0; });
}

bool Guid::operator==(const Guid& other) const noexcept {
    return std::equal(std::begin(ch), std::end(ch), other.ch);
}

void Guid::buildString() {
    static constexpr char digits[] = "0123456789ABCDEF";
    retstr.clear();
    for (std::size_t i = 0; i < sizeof ch; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            retstr += '-';
        }
        retstr += digits[ch[i] >> 4U];
        retstr += digits[ch[i] & 0x0FU];
    }
}
