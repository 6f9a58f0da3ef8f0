#pragma once

#include "pniInfoCache.h"
#include "wireBytes.h"

#include <string>

/// Walks the body of a port information record and notes in `cache` where everything lies; format,
/// number of modules and the body's own place are already there. Modules behind the eighth are not
/// looked at, ports and functions behind the sixteenth are passed over. Throws PniAccessError for
/// lists that contradict themselves or reach beyond the body.
void readPniLayout(ByteView body, PniInfoCache& cache);

/// Technology of a port function in a record of this format, from its common part: the name there,
/// or that of the code there; "Unknown" for other codes and common parts that end before it.
std::string portFnType(unsigned format, ByteView common);
