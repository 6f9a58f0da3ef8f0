#pragma once

#include "tavIpmi.h"

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tavStatus {

/// How far the asking came.
enum class Reach {
    answering, // to the last question
    noDevice,  // there is no device node
    denied,    // there is one, but it does not open
    broken,    // the driver refused a call
    silent,    // a question got no answer
    slow,      // the answers took so long that the time ran out
};

/// One request to the BMC; only such as change nothing there.
struct Question {
    unsigned char netfn;
    unsigned char cmd;
    ByteView data = {};
    unsigned char lun = 0;
};

/// The exchanges of one look at the BMC. After the first one without an answer, and when so much
/// time has passed that another one could take it beyond ten seconds in all, no more take place.
class BmcQuestions {
  public:
    BmcQuestions() noexcept;

    /// The whole answer, completion code first; empty when there was none.
    std::vector<unsigned char> ask(const Question& question);
    /// True when the answer has completion code 0 and at least `needed` bytes, completion code
    /// included; `record` is zero where nothing was received.
    template <typename Record>
    bool ask(const Question& question, Record& record, std::size_t needed = sizeof(Record)) {
        const std::vector<unsigned char> answer = ask(question);
        return readRecord(answer, record, needed) && answer[0] == tavIpmi::ipmi_cc_normally_cc;
    }

    /// From now on nothing more is asked.
    void giveUp(Reach why, std::string trouble);

    Reach reach() const noexcept { return reached; }
    /// Why it ended early, a line for people; empty while the BMC answers.
    const std::string& trouble() const noexcept { return why; }
    /// Completion code of the last answer; of an empty one that of an unspecific error.
    unsigned char lastCode() const noexcept { return code; }
    /// Questions that were answered, in whatever way.
    unsigned answers() const noexcept { return answered; }

  private:
    const tavIpmi::TavIpmi* connection(unsigned char lun);
    void noteClosedDevice();

    std::chrono::milliseconds begin;
    std::array<std::unique_ptr<tavIpmi::TavIpmi>, 2> connections; // by LUN
    Reach reached = Reach::answering;
    std::string why;
    unsigned char code = tavIpmi::ipmi_cc_normally_cc;
    unsigned answered = 0;
};

} // namespace tavStatus
