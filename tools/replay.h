#pragma once

#include "hostFiles.h"
#include "machine.h"
#include "recordFile.h"
#include "replayClock.h"
#include "replayDevice.h"

#include <fstream>

namespace sim {

/// A recorded world for the agent: its BMC, its network, its machine, its time. What goes wrong
/// during the replay ends the process, with a line on standard error that says where.
class Replay {
  public:
    enum Status {
        unusable = 2,  ///< the record cannot be read (on)
        different = 3, ///< the agent asks something else than is recorded, or less
        recordCut = 4, ///< the record ended before the agent did, because it was cut off
    };

    /// Reads the header. Throws std::runtime_error, one line.
    explicit Replay(const std::string& path_);

    /// Gives the process the recorded network, and `files` the recorded machine and a pid file of
    /// their own. Warns of a record that another maker's agent made. Throws std::runtime_error.
    void setUpHost(SmbiosForm form, HostFiles& files) const;

    ReplayDevice& device() noexcept { return player; }
    ReplayClock& clock() noexcept { return time; }
    const RecordHeader& header() const noexcept { return reader->header(); }

    /// Behind each exchange: ends the process if nothing more is known of the agent, for its record
    /// was cut off there. Whatever the agent does now, nobody would tell it to end.
    void endWhereCut() const;
    /// For the end of the agent: ends the process if not all of the record was played; otherwise
    /// gives a line about what was.
    std::string closingLine() const;
    /// Removes what a daemon that did not come to its end has left behind.
    void cleanUp() const noexcept;

  private:
    std::optional<RecordedStep> next();
    [[noreturn]] void refuse(const RecordedStep* recorded, const Exchange& asked) const;
    [[noreturn]] void endAsCut() const;
    [[noreturn]] void end(Status status, const std::string& text) const;
    void say(const std::string& text) const;

    std::string path;
    std::string pidFile; // of its own: the host's may be that of an agent at work
    std::ifstream file;
    std::optional<RecordReader> reader;
    ReplayClock time{std::chrono::hours(1)};
    ReplayDevice player;
    int complaints; // standard error as it was: a daemon's leads nowhere
};

} // namespace sim
