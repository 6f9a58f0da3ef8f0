#include "valueText.h"

#include "text.h"

#include <stdexcept>

#include <arpa/inet.h>

namespace sim {

namespace {

std::string wordText(ValueKind kind, unsigned char value) {
    for (const ValueWord& word : valueWords()) {
        if (word.kind == kind && word.value == value) {
            return word.word;
        }
    }
    return std::to_string(value);
}

Bytes parseAddress(const std::string& text) {
    Bytes value(4);
    if (::inet_pton(AF_INET, text.c_str(), value.data()) != 1) {
        throw std::invalid_argument("'" + text + "' is not an IPv4 address");
    }
    return value;
}

Bytes parseSeconds(const std::string& text) {
    const long seconds = parseNumber(text, 0, 0xFFFF);
    return {static_cast<unsigned char>(seconds & 0xFF), static_cast<unsigned char>(seconds >> 8)};
}

Bytes parseByte(ValueKind kind, const std::string& text) {
    for (const ValueWord& word : valueWords()) {
        if (word.kind == kind && text == word.word) {
            return {word.value};
        }
    }
    return {static_cast<unsigned char>(parseNumber(text, 0, 0xFF))};
}

} // namespace

const ConfVariable& namedConfVariable(std::string_view name) {
    for (const ConfVariable& variable : confVariables()) {
        if (name == variable.name || name == std::to_string(variable.id)) {
            return variable;
        }
    }
    throw std::invalid_argument("'" + std::string(name) +
                                "' is not a variable of the configuration space");
}

std::string valueText(ValueKind kind, Data value) {
    if (!lengthFits(kind, value.size())) {
        return hexText(value);
    }
    switch (kind) {
    case ValueKind::text:
        return quoted(value);
    case ValueKind::ipv4Address:
        return addressText(value);
    case ValueKind::seconds:
        return std::to_string(value[0] + 256 * value[1]) + " s";
    default:
        return wordText(kind, value[0]);
    }
}

Bytes parseValue(ValueKind kind, const std::string& text) {
    switch (kind) {
    case ValueKind::ipv4Address:
        return parseAddress(text);
    case ValueKind::seconds:
        return parseSeconds(text);
    case ValueKind::text:
        break;
    default:
        return parseByte(kind, text);
    }
    if (!lengthFits(kind, text.size())) {
        throw std::invalid_argument("more than 255 characters");
    }
    return {text.begin(), text.end()};
}

} // namespace sim
