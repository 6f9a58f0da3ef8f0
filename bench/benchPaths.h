#pragma once

#include "hostPaths.h"

/// The host paths of the benchmarks, for setting.
HostPaths& benchPaths() noexcept;
