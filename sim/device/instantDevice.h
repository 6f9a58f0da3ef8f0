#pragma once

#include "ipmiDevice.h"

#include <cstring>

namespace sim {

/// Answers every request at once with 16 bytes, all 0, and counts what it is asked: for finding out
/// what others cost.
class InstantDevice final : public IpmiDevice {
  public:
    int open(const char* /*path*/) noexcept override { return count(3); }
    int send(int /*fd*/, ipmi_req& request) noexcept override {
        msgid = request.msgid;
        return count(0);
    }
    int wait(int /*fd*/, fd_set& /*readable*/, timeval& /*budget*/) noexcept override {
        return count(1);
    }
    int receive(int /*fd*/, ipmi_recv& record) noexcept override {
        record.recv_type = IPMI_RESPONSE_RECV_TYPE;
        record.msgid = msgid;
        record.msg.data_len = 16;
        std::memset(record.msg.data, 0, 16);
        return count(0);
    }
    int lock(int /*fd*/) noexcept override { return count(0); }
    int close(int /*fd*/) noexcept override { return count(0); }

    unsigned long calls{0};

  private:
    int count(int result) noexcept {
        ++calls;
        return result;
    }
    long msgid{0};
};

} // namespace sim
