#include "tavError.h"

namespace {

std::string overwriteStart(std::string text, int number) {
    const std::string digits = std::to_string(number);
    return text.replace(0, digits.size(), digits);
}

} // namespace

TavError::TavError(const std::string& message, const std::string& file, const unsigned& line) :
    std::logic_error("errm"), fi(file), li(line),
    errmsg("Error: " + message + "(" + file + "," + std::to_string(line) + ")\n") {}

TavError::TavError(const std::string& message, const std::string& file, const unsigned& line,
                   const int& number) :
    std::logic_error(""),
    fi(file), li(line), errmsg(overwriteStart(message, number)) {}
