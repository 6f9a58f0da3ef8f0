// One Get Device ID over the agent's transport: what the exchange alone costs a process.

#include "tavIpmi.h"

#include <cstdio>
#include <exception>

int main() {
    try {
        const tavIpmi::TavIpmi ipmi(0, 0, tavIpmi::TavIpmi::ipmiSystemInterface);
        tavIpmi::TavIpmi_request_msg msg(tavIpmi::ipmi_netfn_req_app,
                                         tavIpmi::ipmi_cmd_get_device_id, {});
        if (!tavIpmi::exchange(ipmi, msg)) {
            (void)std::fputs("no answer, or not a good one\n", stderr);
            return 1;
        }
        for (const unsigned char byte : msg.response()) {
            (void)std::printf(" %02x", byte);
        }
        (void)std::puts("");
        return 0;
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
