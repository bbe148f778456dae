#pragma once

#include "raster/JobTicket.h"

#include <string>

namespace veltrin::raster {

/// What is chosen in the PPD of this path, with its defaults and with these options of a job marked in it, as
/// CUPS marks them. No choices where it cannot be read, and `problem` says why.
[[nodiscard]] PPDChoices choicesInPPD(const std::string &path, const std::string &options,
                                      std::string &problem);

} // namespace veltrin::raster
