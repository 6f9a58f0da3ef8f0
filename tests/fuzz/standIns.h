#pragma once

#include "world.h"

#include <net/if.h>

// What the fuzz targets have in common, beside the world: a network that the kernel tells of, a log
// that nobody reads, and no signals.

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

/// Unless fulfilled, the input is a find.
void require(bool fulfilled, const char* what);
