#pragma once

#include "driver/PageSelection.h"
#include "driver/SpooledPages.h"

// What the log is told of the choice of the pages that make up one copy.

namespace veltrin {

void logCopyCounts(const JobSettings &settings, const CopyCounts &counts, std::uint32_t pageCount);

void logSelection(const PageSelection &selection);

/// The files by name: all of them, and those of the copy.
void logPaths(const SpooledPages &pages);

} // namespace veltrin
