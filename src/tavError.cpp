#include "tavError.h"

#include <cerrno>
#include <cstring>

namespace {

std::string overwriteStart(std::string text, int number) {
    const std::string digits = std::to_string(number);
    return text.replace(0, digits.size(), digits);
}

} // namespace

std::string errnoText(const char* what) {
    return what + std::string(std::strerror(errno));
}

TavError::TavError(const std::string& message, const std::string& file, const unsigned& line) :
    std::logic_error("errm"), fi(file), li(line),
    errmsg("Error: " + message + "(" + file + "," + std::to_string(line) + ")\n") {}

TavError::TavError(const std::string& message, const std::string& file, const unsigned& line,
                   const int& number) :
    std::logic_error(""),
    fi(file), li(line), errmsg(overwriteStart(message, number)) {}
