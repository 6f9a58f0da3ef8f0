#pragma once

#include <linux/ipmi.h>
#include <sys/select.h>
#include <sys/time.h>

/// The kernel's IPMI message-handler device, as the transport uses it: one of the agent's three
/// seams to the outside. Every call returns what the system call behind it returns (-1 with errno
/// set on failure) and never throws.
class IpmiDevice {
  public:
    IpmiDevice() = default;
    IpmiDevice(const IpmiDevice&) = delete;
    IpmiDevice& operator=(const IpmiDevice&) = delete;
    virtual ~IpmiDevice() = default;

    /// Opens the device node `path` for reading and writing; gives the descriptor.
    virtual int open(const char* path) noexcept = 0;
    /// IPMICTL_SEND_COMMAND: hands one request to the driver.
    virtual int send(int fd, ipmi_req& request) noexcept = 0;
    /// select(2) on `fd` alone. `readable` and `budget` are the caller's from call to call: what
    /// one wait leaves in them is what the next one starts with.
    virtual int wait(int fd, fd_set& readable, timeval& budget) noexcept = 0;
    /// IPMICTL_RECEIVE_MSG: takes one record; one that does not fit fails with EMSGSIZE.
    virtual int receive(int fd, ipmi_recv& record) noexcept = 0;
    /// flock(2), exclusive and without waiting: fails with EWOULDBLOCK while another descriptor of
    /// the node, of whatever program, has the lock. Closing releases it.
    virtual int lock(int fd) noexcept = 0;
    virtual int close(int fd) noexcept = 0;
};

/// The device of this program. Exactly one definition is linked in: the kernel's, or a simulated
/// one.
IpmiDevice& ipmiDevice() noexcept;
