#include "driver/PriorityTray.h"

#include "filter/OptionValues.h"

namespace veltrin {

std::optional<std::uint32_t> priorityTrayNamedBy(std::string_view jobName) {
    if (!jobName.starts_with('@') || !jobName.ends_with(')')) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(integerValue(jobName.substr(jobName.size() - 2)));
}

} // namespace veltrin
