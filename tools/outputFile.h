#pragma once

#include <string>
#include <string_view>

namespace sim {

/// A file that is written beside the agent's work, which goes on whatever happens to it: when it
/// cannot be opened or written, one line on standard error says so, and nothing more is written.
class OutputFile {
  public:
    /// Creates or empties `path`. `what` is what stops when it cannot be written: "recording".
    /// Throws UsageError when another program, or another output of this one, has it already.
    OutputFile(std::string path_, const char* what_);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    /// In a single write(2).
    void write(std::string_view bytes);
    /// False when nothing is written any more.
    explicit operator bool() const noexcept { return fd != -1; }
    int descriptor() const noexcept { return fd; }
    /// For who writes to the descriptor: it failed, errno says why.
    void stop() noexcept;

  private:
    void refuseSharing() const;

    std::string path;
    const char* what;
    int complaints; // standard error as it was: a daemon's leads nowhere
    int fd;
};

} // namespace sim
