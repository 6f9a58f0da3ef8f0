#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

/// The lines of a small text file of the host.
class LineReader {
  public:
    explicit LineReader(const std::string& path) noexcept;

    /// The next line without its end, cut at a NUL; one longer than 255 characters comes as these
    /// and is the last. Nothing at the end of the file, or if it cannot be read.
    std::optional<std::string> next();
    /// Whether the file could not be opened, or a read of it failed.
    bool failed() const noexcept { return unreadable; }

  private:
    static void closeFile(std::FILE* open) noexcept;

    std::unique_ptr<std::FILE, decltype(&closeFile)> file;
    bool unreadable;
};
