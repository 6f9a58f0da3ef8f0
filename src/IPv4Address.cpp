#include "IPv4Address.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

/// Reads the numbers as formatted stream input would, without the weight of a stream: leading
/// blanks and a sign are fine; the first number that is missing or too large is the last one looked
/// at.
class NumberReader {
  public:
    explicit NumberReader(const std::string& text) noexcept :
        next(text.c_str()), last(next + text.size()) {}

    unsigned char read() noexcept {
        char* end = nullptr;
        errno = 0;
        const long number = std::strtol(next, &end, 10);
        const bool fits = errno == 0 && number == static_cast<int>(number);
        skipSeparator(fits && end != next ? end : last);
        return fits ? static_cast<unsigned char>(static_cast<unsigned long>(number) & 0xFFU)
                    : tooLarge(number);
    }

  private:
    /// What a stream leaves behind: the largest or the smallest integer, of which a byte remains.
    static unsigned char tooLarge(long number) noexcept { return number > 0 ? 0xFF : 0x00; }

    void skipSeparator(const char* from) noexcept {
        from += std::strspn(from, " \t\n\v\f\r");
        next = from == last ? from : from + 1;
    }

    const char* next;
    const char* last;
};

} // namespace

IPv4Address::IPv4Address(const std::string& text) : v{} {
    NumberReader numbers(text);
    std::generate(std::begin(v), std::end(v), [&numbers] { return numbers.read(); });
}

IPv4Address& IPv4Address::operator=(const unsigned char* bytes) noexcept {
    std::copy_n(bytes, sizeof v, v);
    return *this;
}

IPv4Address& IPv4Address::operator=(const char* text) {
    return *this = IPv4Address(std::string(text));
}

IPv4Address& IPv4Address::operator=(std::uint32_t view) noexcept {
    l = view;
    return *this;
}

IPv4Address::operator std::string() const {
    std::string text = std::to_string(v[0]);
    for (std::size_t i = 1; i < sizeof v; ++i) {
        text += '.' + std::to_string(v[i]);
    }
    return text;
}

void IPv4Address::setOne() noexcept {
    l = 0xFFFFFFFFU;
}
