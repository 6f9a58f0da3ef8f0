#pragma once

#include "hostNetwork.h"
#include "world.h"

// What the fuzz targets have in common, beside the world and the network: a log that nobody reads,
// and no signals.

/// Unless fulfilled, the input is a find.
void require(bool fulfilled, const char* what);
