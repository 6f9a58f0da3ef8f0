#pragma once

#include "ipmiMessage.h"

#include <vector>

#include <net/if.h>

// A network that is made up: where hostNetwork.cpp is linked in, it stands for libc's sockets and
// what the kernel says there of the host's interfaces.

/// What the kernel tells of the host's network.
struct Network {
    struct Interface {
        char name[IFNAMSIZ];
        /// What the union in `ifreq` begins with: address, index, MTU, MAC address, mask, broadcast
        /// address, flags.
        unsigned char answers[7][8];
        unsigned char failing; ///< a bit for each but the first
    };
    struct Ipv6Entry {
        unsigned char interface;
        unsigned char kind; ///< bits 0: without address, 1: without mask, 2: of another family
        unsigned char address[16], mask[16];
    };

    std::vector<Interface> interfaces;
    std::vector<Ipv6Entry> ipv6;
    sim::Bytes routingAnswer;
    int lengthError = 0; ///< of the list of interfaces
};
extern Network network;
