#include "recordFile.h"
#include "text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>

#include <arpa/inet.h>
#include <linux/ipmi.h>
#include <net/if.h>

namespace sim {

namespace {

constexpr std::string_view firstLine = "#tav-record 1";
constexpr std::string_view anyFirstLine = "#tav-record ";
// The longest that a writer makes: two messages of the driver, their text, and some room.
constexpr std::size_t longestLine = 8192;
constexpr long mostExchanges = std::numeric_limits<int>::max();
constexpr long mostMilliseconds = 1000L * 60 * 60 * 24 * 366 * 100; // a century

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument(what);
}

/// A line, taken to pieces from the front; throws std::invalid_argument.
class Words {
  public:
    explicit Words(std::string_view text) : rest(text) {}

    bool empty() const noexcept { return rest.empty(); }

    std::string_view next() {
        if (rest.empty()) {
            refuse("ends too early");
        }
        const std::size_t blank = rest.find(' ');
        const std::string_view word = rest.substr(0, blank);
        rest.remove_prefix(blank == std::string_view::npos ? rest.size() : blank + 1);
        return word;
    }

    /// Takes the word if it is the next one.
    bool take(std::string_view word) {
        const bool isNext =
            rest.starts_with(word) && (rest.size() == word.size() || rest[word.size()] == ' ');
        if (isNext) {
            next();
        }
        return isNext;
    }

    void expect(std::string_view word) {
        if (!take(word)) {
            refuse("lacks '" + std::string(word) + "'");
        }
    }

    long number(long least, long most) { return parseNumber(next(), least, most); }

    /// A word in double quotes, which may have blanks in it.
    std::string quotedWord() {
        if (!rest.starts_with('"')) {
            refuse("lacks a text in quotes");
        }
        rest.remove_prefix(1);
        std::string text;
        while (!rest.starts_with('"')) {
            text += character();
        }
        rest.remove_prefix(1);
        if (!rest.empty() && !rest.starts_with(' ')) {
            refuse("has something right behind a text in quotes");
        }
        rest.remove_prefix(std::min<std::size_t>(rest.size(), 1));
        return text;
    }

    void expectEnd() const {
        if (!rest.empty()) {
            refuse("has too much: '" + std::string(rest.substr(0, 20)) + "'");
        }
    }

  private:
    char character();

    std::string_view rest;
};

unsigned char hexValue(char digit) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const std::size_t value = digits.find(digit);
    if (value == std::string_view::npos) {
        refuse(std::string("has '") + digit + "' in the place of a hexadecimal digit");
    }
    return static_cast<unsigned char>(value);
}

unsigned char hexByteOf(std::string_view digits) {
    if (digits.size() != 2) {
        refuse("has '" + std::string(digits) + "' in the place of two hexadecimal digits");
    }
    return static_cast<unsigned char>(hexValue(digits[0]) << 4U | hexValue(digits[1]));
}

char Words::character() {
    constexpr std::string_view escape = "\\x";
    if (rest.empty()) {
        refuse("has quotes that do not close");
    }
    std::size_t length = 1;
    char value = rest.front();
    if (rest.starts_with(escape)) {
        length = escape.size() + 2;
        value = static_cast<char>(hexByteOf(rest.substr(escape.size(), 2)));
    }
    rest.remove_prefix(length);
    return value;
}

Bytes hexBytes(std::string_view digits) {
    Bytes bytes;
    if (digits == "-") {
        return bytes;
    }
    if (digits.size() % 2 != 0 || digits.size() > std::size_t{2} * IPMI_MAX_MSG_LENGTH) {
        refuse("has bytes that are not whole, or too many");
    }
    for (; !digits.empty(); digits.remove_prefix(2)) {
        bytes.push_back(hexByteOf(digits.substr(0, 2)));
    }
    return bytes;
}

/// "12.345"
std::chrono::milliseconds milliseconds(std::string_view text) {
    constexpr std::size_t places = 4; // point included
    if (text.size() <= places || text[text.size() - places] != '.') {
        refuse("has '" + std::string(text) + "' in the place of a time");
    }
    std::string digits(text);
    digits.erase(digits.size() - places, 1);
    return std::chrono::milliseconds(parseNumber(digits, 0, mostMilliseconds));
}

template <std::size_t size>
void readAddress(std::string_view text, std::array<unsigned char, size>& address) {
    const int family = size == sizeof(in_addr) ? AF_INET : AF_INET6;
    if (::inet_pton(family, std::string(text).c_str(), address.data()) != 1) {
        refuse("has '" + std::string(text) + "' in the place of an address");
    }
}

template <std::size_t size>
unsigned readPrefix(std::string_view text, std::array<unsigned char, size>& address) {
    const std::size_t slash = std::min(text.find('/'), text.size());
    readAddress(text.substr(0, slash), address);
    const std::string_view length = text.substr(std::min(slash + 1, text.size()));
    return static_cast<unsigned>(parseNumber(length, 0, 8 * size));
}

void readTarget(std::string_view text, Exchange& exchange) {
    constexpr std::string_view bus = "ipmb:";
    constexpr std::string_view other = "type:";
    if (text == "bmc") {
        exchange.addressType = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    } else if (text.starts_with(bus)) {
        exchange.addressType = IPMI_IPMB_ADDR_TYPE;
        exchange.slaveAddress = hexByteOf(text.substr(bus.size()));
    } else if (text.starts_with(other)) {
        exchange.addressType = static_cast<int>(parseNumber(text.substr(other.size()), 0, 0xFFFF));
    } else if (text != "none") {
        refuse("has the unknown target '" + std::string(text) + "'");
    }
}

DeviceCall deviceCall(std::string_view name) {
    const auto* const found = std::ranges::find(deviceCallNames, name);
    if (found == std::end(deviceCallNames)) {
        refuse("has the unknown device call '" + std::string(name) + "'");
    }
    return static_cast<DeviceCall>(found - std::begin(deviceCallNames));
}

int errnoOf(std::string_view name) {
    constexpr long most = 4095; // of the kernel
    const bool isNumber = !name.empty() && name.front() >= '0' && name.front() <= '9';
    return isNumber ? static_cast<int>(parseNumber(name, 1, most)) : errnoNamed(name);
}

void readOthers(std::string_view list, Exchange& exchange) {
    while (true) {
        const std::size_t comma = list.find(',');
        exchange.otherRecords.push_back(static_cast<int>(
            parseNumber(list.substr(0, comma), std::numeric_limits<int>::min(), mostExchanges)));
        if (comma == std::string_view::npos) {
            return;
        }
        list.remove_prefix(comma + 1);
    }
}

void readOutcome(Words& words, Exchange& exchange) {
    if (words.take("others")) {
        readOthers(words.next(), exchange);
    }
    if (words.take("silent")) {
        return;
    }
    if (words.take("fail")) {
        exchange.failedCall = deviceCall(words.next());
        exchange.error = errnoOf(words.next());
        return;
    }
    exchange.foreignId = words.take("foreign");
    exchange.response = hexBytes(words.next());
}

/// Behind "E": all but the words for people at the end.
Exchange readExchange(Words& words) {
    Exchange exchange;
    exchange.number = static_cast<unsigned>(words.number(1, mostExchanges));
    exchange.sentAt = milliseconds(words.next());
    exchange.endedAt = exchange.sentAt + milliseconds(words.next());
    readTarget(words.next(), exchange);
    exchange.netfn = hexByteOf(words.next());
    exchange.lun = static_cast<unsigned char>(words.number(0, 3));
    exchange.cmd = hexByteOf(words.next());
    exchange.request = hexBytes(words.next());
    words.expect(">");
    readOutcome(words, exchange);
    words.expect(";");
    return exchange;
}

std::string interfaceName(Words& words) {
    constexpr std::string_view forbidden("/: \t\n\v\f\r\xA0\0", 10); // as the kernel has it
    std::string name = words.quotedWord();
    const bool usable = !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
                        name.find_first_of(forbidden) == std::string::npos;
    if (!usable) {
        refuse("has a name that no interface can have");
    }
    return name;
}

/// One with too many addresses for a line has several.
void takeInterface(const RecordedInterface& interface, std::vector<RecordedInterface>& known) {
    if (known.empty() || known.back().index != interface.index) {
        known.push_back(interface);
        return;
    }
    RecordedInterface& last = known.back();
    last.ipv4.insert(last.ipv4.end(), interface.ipv4.begin(), interface.ipv4.end());
    last.ipv6.insert(last.ipv6.end(), interface.ipv6.begin(), interface.ipv6.end());
}

RecordedInterface readInterface(Words& words) {
    RecordedInterface interface;
    interface.index = static_cast<unsigned>(words.number(1, mostExchanges));
    interface.name = interfaceName(words);
    words.expect("flags");
    interface.flags = static_cast<unsigned>(words.number(0, mostExchanges));
    words.expect("mtu");
    interface.mtu = static_cast<unsigned>(words.number(0, mostExchanges));
    words.expect("mac");
    const Bytes mac = hexBytes(words.next());
    if (mac.size() != interface.mac.size()) {
        refuse("has a MAC address that is none");
    }
    std::ranges::copy(mac, interface.mac.begin());
    while (words.take("ipv4")) {
        auto& address = interface.ipv4.emplace_back();
        address.prefixLength = readPrefix(words.next(), address.address);
        readAddress(words.next(), address.broadcast);
    }
    while (words.take("ipv6")) {
        auto& address = interface.ipv6.emplace_back();
        address.prefixLength = readPrefix(words.next(), address.address);
    }
    return interface;
}

RecordHeader::System readSystem(Words& words) {
    RecordHeader::System system;
    for (std::string* const text :
         {&system.manufacturer, &system.product, &system.serialNumber, &system.family}) {
        *text = words.quotedWord();
    }
    return system;
}

/// False when the line is none of the header's.
bool readHeaderLine(Words& words, RecordHeader& header) {
    if (words.take("program")) {
        header.program = words.quotedWord();
    } else if (words.take("started")) {
        header.started = words.quotedWord();
    } else if (words.take("kernel")) {
        header.kernel = words.quotedWord();
    } else if (words.take("maker")) {
        header.maker = static_cast<std::uint32_t>(words.number(0, 0xFFFFFF));
    } else if (words.take("options")) {
        while (!words.empty()) {
            header.options.push_back(words.quotedWord());
        }
    } else if (words.take("masked")) {
        header.masked = true;
    } else if (words.take("system")) {
        header.system = readSystem(words);
    } else if (words.take("enclosure")) {
        header.enclosureSerials.push_back(words.quotedWord());
    } else if (words.take("interface")) {
        takeInterface(readInterface(words), header.interfaces);
    } else {
        return false;
    }
    words.expectEnd();
    return true;
}

} // namespace

RecordReader::RecordReader(std::istream& input_) : input(input_) {
    if (!readLine()) {
        throw RecordError(input.bad() ? std::string("cannot be read: ") + std::strerror(errno)
                                      : "is empty");
    }
    if (!text.starts_with(anyFirstLine)) {
        throw RecordError("is not a record: its first line should be '" + std::string(firstLine) +
                          "'");
    }
    if (text != firstLine) {
        throw RecordError("is a record of version '" + text.substr(anyFirstLine.size(), 20) +
                          "'; only version 1 can be read");
    }
    takeHeader();
}

/// Up to the first line that is not the header's.
void RecordReader::takeHeader() {
    constexpr unsigned long most = 100000; // of all its lines
    while (readLine()) {
        bool taken = false;
        parsing([&] {
            Words words(text);
            taken = readHeaderLine(words, head);
        });
        if (!taken) {
            pending = true;
            return;
        }
        if (lineNumber == most) {
            throw RecordError("has a header without end");
        }
    }
}

std::optional<RecordedStep> RecordReader::next() {
    if (closed || (!pending && !readLine())) {
        return std::nullopt;
    }
    pending = false;
    RecordedStep step{.line = lineNumber, .exchange = {}, .toldAt = {}};
    parsing([&] {
        Words words(text);
        if (words.take("E")) {
            step.exchange = readExchange(words);
        } else if (words.take("end")) {
            closed = words.number(0, mostExchanges) == exchanges;
            words.expectEnd();
            if (!closed) {
                refuse("ends a record with another number of exchanges");
            }
        } else {
            words.expect("S");
            step.toldAt = milliseconds(words.next());
            words.expect(";");
        }
        if (step.exchange && step.exchange->number != ++exchanges) {
            refuse("is not exchange " + std::to_string(exchanges));
        }
    });
    return closed ? std::nullopt : std::optional(std::move(step));
}

/// Reads the next whole line into `text`. False at the end, also in the middle of a line.
bool RecordReader::readLine() {
    std::array<char, longestLine> buffer;
    input.getline(buffer.data(), buffer.size());
    const auto length = static_cast<std::size_t>(input.gcount());
    if (input.eof() || input.bad()) {
        return false;
    }
    ++lineNumber;
    if (input.fail()) {
        throw RecordError("line " + std::to_string(lineNumber) + ": longer than any of a record");
    }
    text.assign(buffer.data(), length - 1); // without its end
    return true;
}

/// Gives what is wrong with a line its number.
template <typename Work>
void RecordReader::parsing(Work work) const {
    try {
        work();
    } catch (const std::invalid_argument& error) {
        throw RecordError("line " + std::to_string(lineNumber) + ": " + error.what());
    }
}

} // namespace sim
