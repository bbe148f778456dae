#pragma once

#include "filter/CUPSFilter.h"

#include <functional>
#include <memory>

namespace veltrin {

/// Allocates the filter that a process is to run.
using FilterAllocator = std::function<std::unique_ptr<CUPSFilter>(platform::Platform &)>;

/// The life of a filter process: allocates its filter, initialises it with the process's arguments, runs it
/// and releases it. Returns the exit status: 0 where the job was printed, 1 in every other case.
[[nodiscard]] int filterMain(int argc, char **argv, platform::Platform &platform,
                             const FilterAllocator &allocate);

} // namespace veltrin
