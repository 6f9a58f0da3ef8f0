#include "bmcQuestions.h"

#include "agentClock.h"
#include "errorText.h"
#include "ipmiDevice.h"

#include <cerrno>
#include <cstring>

using tavIpmi::TavIpmi;
using tavIpmi::TavIpmi_request_msg;

namespace tavStatus {

namespace {

/// An exchange that begins then may still wait its five seconds.
constexpr std::chrono::milliseconds longestAsking{4800};

constexpr unsigned char emptyAnswer = tavIpmi::ipmi_cc_unspecific_error;

/// Why no node opens. The transport tells of the last one that it tries, which hardly any host has.
int openError() {
    int error = ENOENT;
    for (const char* const path : {"/dev/ipmi0", "/dev/ipmi/0", "/dev/ipmidev/0"}) {
        const int fd = ipmiDevice().open(path);
        if (fd != -1) {
            ipmiDevice().close(fd); // it has come back in the meantime
        } else if (error == ENOENT) {
            error = errno;
        }
    }
    return error;
}

} // namespace

BmcQuestions::BmcQuestions() noexcept : begin(agentClock().monotonic()) {}

std::vector<unsigned char> BmcQuestions::ask(const Question& question) {
    if (reached == Reach::answering && agentClock().monotonic() - begin >= longestAsking) {
        giveUp(Reach::slow, "the BMC answers so slowly that the rest was not asked");
    }
    const TavIpmi* const ipmi = connection(question.lun);
    if (ipmi == nullptr) {
        return {};
    }
    try {
        TavIpmi_request_msg msg(question.netfn, question.cmd, question.data);
        if (!ipmi->sendCmd(msg)) {
            giveUp(Reach::silent, "the BMC does not answer");
        } else {
            ++answered;
        }
        const ByteView answer = msg.response();
        code = answer.empty() ? emptyAnswer : answer[0];
        return {answer.begin(), answer.end()};
    } catch (const tavIpmi::TavIpmiError& error) {
        giveUp(Reach::broken, "the IPMI driver fails: " + errorText(error));
        return {};
    }
}

void BmcQuestions::giveUp(Reach reason, std::string trouble) {
    reached = reason;
    why = std::move(trouble);
}

/// Null when nothing is asked any more.
const TavIpmi* BmcQuestions::connection(unsigned char lun) {
    if (reached != Reach::answering) {
        return nullptr;
    }
    if (!connections.at(lun)) {
        try {
            connections.at(lun) =
                std::make_unique<TavIpmi>(lun, std::uint8_t{0}, TavIpmi::ipmiSystemInterface);
        } catch (const tavIpmi::TavIpmiError&) {
            noteClosedDevice();
        }
    }
    return connections.at(lun).get();
}

void BmcQuestions::noteClosedDevice() {
    const int error = openError();
    if (error == ENOENT || error == ENODEV || error == ENXIO) {
        giveUp(Reach::noDevice, "there is no IPMI device (/dev/ipmi0); the kernel's modules "
                                "ipmi_devintf and ipmi_si make one");
        return;
    }
    const bool forbidden = error == EACCES || error == EPERM;
    giveUp(Reach::denied, std::string("the IPMI device does not open: ") + std::strerror(error) +
                              (forbidden ? "; only root may ask the BMC" : ""));
}

} // namespace tavStatus
