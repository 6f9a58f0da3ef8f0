#include "lineReader.h"

namespace {

constexpr std::size_t maxLineLength = 255;

} // namespace

LineReader::LineReader(const std::string& path) noexcept :
    file(std::fopen(path.c_str(), "re"), closeFile), unreadable(!file) {}

std::optional<std::string> LineReader::next() {
    std::string line;
    int character = file ? std::fgetc(file.get()) : EOF;
    for (; character != EOF && character != '\n'; character = std::fgetc(file.get())) {
        if (line.size() == maxLineLength) {
            file.reset();
            break;
        }
        line.push_back(static_cast<char>(character));
    }
    unreadable = unreadable || (file && std::ferror(file.get()) != 0);
    if (character == EOF && line.empty()) {
        return std::nullopt;
    }
    return line.c_str(); // text ends at a NUL
}

void LineReader::closeFile(std::FILE* open) noexcept {
    if (open != nullptr) {
        static_cast<void>(std::fclose(open)); // it was only read
    }
}
