#pragma once

#include "raster/JobOptions.h"
#include "raster/JobTicket.h"

namespace veltrin::raster {

/// The options for the filter: those of the job, but with what the ticket says in place of everything that
/// the job says about copies, collation, sides, size and type of paper. So the filter finds the pages in the
/// stream where the renderer has put them.
[[nodiscard]] JobOptions filterOptions(const JobOptions &options, const JobTicket &ticket);

} // namespace veltrin::raster
