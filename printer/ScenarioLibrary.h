#pragma once

#include "printer/Scenario.h"

#include <optional>
#include <string>
#include <vector>

// The scenarios that are installed with the virtual printer, and those of one's own.

namespace veltrin::printer {

struct ListedScenario {
    std::string name;
    std::string description;
};

/// The scenarios in the folder "scenarios" beside the program or, without one, in that of the installation,
/// by name. Files that are no scenarios are left out.
[[nodiscard]] std::vector<ListedScenario> listedScenarios();

/// The scenario of that name, or of that file where there is a slash or a dot in it; what it does not say of
/// the printer is as in `ordinary`. Nothing, with `problem` set, where there is none or it cannot be read.
[[nodiscard]] std::optional<Scenario> loadScenario(const std::string &nameOrFile, std::string &problem,
                                                   const PrinterSettings &ordinary = {});

} // namespace veltrin::printer
